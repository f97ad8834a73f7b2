// delay_relay ADDRESS TARGET_ADDRESS PORT: a slow line. It listens at ADDRESS and forwards to the same port of
// TARGET_ADDRESS, holding every byte for a delay. It limits no rate and loses nothing.
//
// A line "MILLISECONDS" on standard input sets the delay of each direction for new connections. The answer is a
// number: the longest sequence of round trips since the last such line in which each one waited for the one
// before, which is what doing more at once cannot shorten. The program ends with its standard input.
//
// The kernel connects a client at once. To make it pay for the round trip of the handshake, the server sees the
// connection, and its first bytes, as late as on a line of that length.
#include <utility> // Asio 1.74 needs it and does not include it

#include <boost/asio.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using steady = std::chrono::steady_clock;

/// What a delay was set to, and what was counted since: shared by the connections that were opened then.
struct epoch {
    steady::duration delay{0};
    std::atomic<int> client_trips = 0; // that led to what clients have received
    std::atomic<int> server_trips = 0; // that led to what servers have received
};

struct chunk {
    steady::time_point due;
    std::string bytes; // empty at the end of the stream
    int trips;
};

void raise_to(std::atomic<int>& counter, int value)
{
    for (int old = counter; old < value && !counter.compare_exchange_weak(old, value);) {
    }
}

/// One direction of a connection: one thread reads, another one writes.
class pipe {
public:
    /// Reads to the end; nothing of it is due before `connected`.
    void read(tcp::socket& from, steady::duration delay, steady::time_point connected,
              const std::atomic<int>& trips, int more)
    {
        std::string buffer(std::size_t{256} * 1024, '\0');
        for (error_code ended; !ended;) {
            const std::size_t got = from.read_some(asio::buffer(buffer), ended);
            chunk next{std::max(steady::now() + delay, connected), buffer.substr(0, got), trips + more};
            const std::lock_guard lock(mutex_);
            chunks_.push_back(std::move(next));
            ready_.notify_one();
        }
    }

    void write(tcp::socket& to, std::atomic<int>& trips)
    {
        error_code ended;
        for (bool open = true; open;) {
            const chunk next = take();
            std::this_thread::sleep_until(next.due);
            asio::write(to, asio::buffer(next.bytes), ended);
            open = !next.bytes.empty() && !ended;
            raise_to(trips, open ? next.trips : 0);
        }
        to.shutdown(tcp::socket::shutdown_send, ended);
    }

private:
    chunk take()
    {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [this] { return !chunks_.empty(); });
        chunk next = std::move(chunks_.front());
        chunks_.pop_front();
        return next;
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<chunk> chunks_;
};

void forward(tcp::socket client, const tcp::endpoint& target, const std::shared_ptr<epoch>& now)
{
    const auto connected = steady::now() + 3 * now->delay;
    const int handshake = now->client_trips + 1;
    raise_to(now->client_trips, handshake);
    pipe up;
    pipe down;
    std::jthread up_reader([&] { up.read(client, now->delay, connected, now->client_trips, 0); });
    std::this_thread::sleep_until(connected);
    tcp::socket server(client.get_executor());
    error_code failure;
    server.connect(target, failure);
    if (!failure) {
        server.set_option(tcp::no_delay(true));
        raise_to(now->server_trips, handshake);
        std::jthread up_writer([&] { up.write(server, now->server_trips); });
        std::jthread down_reader([&] { down.read(server, now->delay, connected, now->server_trips, 1); });
        down.write(client, now->client_trips);
    }
    client.shutdown(tcp::socket::shutdown_receive, failure); // an end of what is still read
}

} // namespace

int main(int count, char** arguments)
try {
    if (count != 4) {
        std::cerr << "delay_relay ADDRESS TARGET_ADDRESS PORT\n";
        return 2;
    }
    const auto port = static_cast<std::uint16_t>(std::atoi(arguments[3]));
    const tcp::endpoint target(asio::ip::make_address(arguments[2]), port);
    asio::io_context io;
    tcp::acceptor listener(io, tcp::endpoint(asio::ip::make_address(arguments[1]), port));
    std::mutex mutex;
    auto current = std::make_shared<epoch>();
    std::thread([&] {
        for (;;) {
            tcp::socket client = listener.accept();
            client.set_option(tcp::no_delay(true));
            const std::lock_guard lock(mutex);
            std::thread(forward, std::move(client), target, current).detach();
        }
    }).detach();
    std::cout << "ready" << std::endl;
    for (double milliseconds = 0; std::cin >> milliseconds;) {
        auto next = std::make_shared<epoch>();
        next->delay = std::chrono::duration_cast<steady::duration>(
            std::chrono::duration<double, std::milli>(milliseconds));
        const std::lock_guard lock(mutex);
        std::cout << current->client_trips << std::endl;
        current = std::move(next);
    }
    std::_Exit(0); // the threads of open connections go with the process
} catch (const std::exception& error) {
    std::cerr << "delay_relay: " << error.what() << '\n';
    return 1;
}

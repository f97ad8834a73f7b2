// delay_relay ADDRESS TARGET_ADDRESS PORT: a slow line. It listens at ADDRESS and forwards to the same port of
// TARGET_ADDRESS, holding every byte for a delay. It limits no rate and loses nothing.
//
// A line "MILLISECONDS" on standard input sets the delay of each direction for new connections. The answer is a
// number: the longest sequence of round trips since the last such line in which each one waited for the one
// before, which is what doing more at once cannot shorten. The program ends with its standard input.
//
// The kernel connects a client at once. To make it pay for the round trip of the handshake, the server sees the
// connection, and its first bytes, as late as on a line of that length.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

namespace {

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

bool send_all(int socket, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

/// One direction of a connection: one thread reads, another one writes.
class pipe {
public:
    /// Reads to the end; nothing of it is due before `connected`.
    void read(int from, steady::duration delay, steady::time_point connected, const std::atomic<int>& trips,
              int more)
    {
        std::string buffer(std::size_t{256} * 1024, '\0');
        for (ssize_t got = 1; got > 0;) {
            got = ::recv(from, buffer.data(), buffer.size(), 0);
            chunk next{std::max(steady::now() + delay, connected), {}, trips + more};
            next.bytes.assign(buffer, 0, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
            const std::lock_guard lock(mutex_);
            chunks_.push_back(std::move(next));
            ready_.notify_one();
        }
    }

    void write(int to, std::atomic<int>& trips)
    {
        for (bool open = true; open;) {
            const chunk next = take();
            std::this_thread::sleep_until(next.due);
            open = !next.bytes.empty() && send_all(to, next.bytes);
            raise_to(trips, open ? next.trips : 0);
        }
        ::shutdown(to, SHUT_WR);
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

[[noreturn]] void fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in address(const char* host, const char* port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
    if (::inet_pton(AF_INET, host, &result.sin_addr) != 1) {
        fail(host);
    }
    return result;
}

int stream_socket()
{
    const int result = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (result < 0 || ::setsockopt(result, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
        fail("socket");
    }
    return result;
}

void forward(int client, const sockaddr_in& target, const std::shared_ptr<epoch>& now)
{
    const auto connected = steady::now() + 3 * now->delay;
    const int handshake = now->client_trips + 1;
    raise_to(now->client_trips, handshake);
    pipe up;
    pipe down;
    std::jthread up_reader([&] { up.read(client, now->delay, connected, now->client_trips, 0); });
    std::this_thread::sleep_until(connected);
    const int server = stream_socket();
    if (::connect(server, reinterpret_cast<const sockaddr*>(&target), sizeof target) == 0) {
        raise_to(now->server_trips, handshake);
        std::jthread up_writer([&] { up.write(server, now->server_trips); });
        std::jthread down_reader([&] { down.read(server, now->delay, connected, now->server_trips, 1); });
        down.write(client, now->client_trips);
    }
    ::shutdown(client, SHUT_RD); // an end of what is still read
    up_reader.join();
    ::close(server);
    ::close(client);
}

void accept_all(int listener, const sockaddr_in& target, std::mutex& mutex, std::shared_ptr<epoch>& current)
{
    for (int client = 0; (client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        const int on = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const std::lock_guard lock(mutex);
        std::thread(forward, client, target, current).detach();
    }
}

} // namespace

int main(int count, char** arguments)
try {
    if (count != 4) {
        std::cerr << "delay_relay ADDRESS TARGET_ADDRESS PORT\n";
        return 2;
    }
    const sockaddr_in here = address(arguments[1], arguments[3]);
    const sockaddr_in target = address(arguments[2], arguments[3]);
    const int listener = stream_socket();
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&here), sizeof here) != 0 ||
        ::listen(listener, SOMAXCONN) != 0) {
        fail(arguments[1]);
    }
    std::mutex mutex;
    auto current = std::make_shared<epoch>();
    std::thread([&] { accept_all(listener, target, mutex, current); }).detach();
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

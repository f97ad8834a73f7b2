// delay_relay PORT TARGET_PORT DELAY_MS: forwards every TCP connection to 127.0.0.1:TARGET_PORT and holds each
// byte for DELAY_MS in each direction, without a limit on the rate. Port 0 means a free one. Prints "ready
// PORT", and when a connection has ended, "turns N": how often the client spoke after the server had, its round
// trips.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

namespace {

struct chunk {
    std::chrono::steady_clock::time_point due;
    std::vector<char> bytes; // empty at the end of the stream
};

/// One direction of a connection: a thread that reads, one that writes what is due.
class pipe {
public:
    pipe(int from, int to, std::chrono::milliseconds delay) : from_(from), to_(to), delay_(delay) {}

    template <class Heard>
    void read(Heard heard)
    {
        std::vector<char> buffer(std::size_t{256} * 1024);
        for (bool open = true; open;) {
            const ssize_t got = recv(from_, buffer.data(), buffer.size(), 0);
            open = got > 0;
            if (open) {
                heard();
            }
            chunk next{std::chrono::steady_clock::now() + delay_,
                       {buffer.data(), buffer.data() + std::max<ssize_t>(got, 0)}};
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return held_ < most_held_; });
            held_ += next.bytes.size();
            chunks_.push_back(std::move(next));
            changed_.notify_all();
        }
    }

    void write()
    {
        for (bool open = true; open;) {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return !chunks_.empty(); });
            const chunk next = std::move(chunks_.front());
            chunks_.pop_front();
            lock.unlock();
            std::this_thread::sleep_until(next.due);
            open = !next.bytes.empty() && send_all(next.bytes);
            lock.lock();
            held_ -= next.bytes.size();
            changed_.notify_all();
        }
        shutdown(to_, SHUT_WR);
        shutdown(from_, SHUT_RD); // What is still held has nowhere to go.
        const std::lock_guard lock(mutex_);
        most_held_ = std::numeric_limits<std::size_t>::max();
        changed_.notify_all();
    }

private:
    bool send_all(const std::vector<char>& bytes) const
    {
        ssize_t sent = 1;
        for (std::size_t place = 0; place < bytes.size() && sent > 0; place += static_cast<std::size_t>(sent)) {
            sent = std::max<ssize_t>(send(to_, &bytes[place], bytes.size() - place, MSG_NOSIGNAL), 0);
        }
        return sent > 0;
    }

    int from_;
    int to_;
    std::chrono::milliseconds delay_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<chunk> chunks_;
    std::size_t held_ = 0;
    std::size_t most_held_ = std::size_t{64} * 1024 * 1024;
};

sockaddr_in loopback(const char* port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
    return address;
}

void serve(int client, const sockaddr_in& target, std::chrono::milliseconds delay)
{
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    const int yes = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    setsockopt(server, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (connect(server, reinterpret_cast<const sockaddr*>(&target), sizeof target) == 0) {
        std::atomic<bool> server_spoke = true;
        std::atomic<int> turns = 0;
        pipe up(client, server, delay);
        pipe down(server, client, delay);
        {
            std::jthread up_writer([&] { up.write(); });
            std::jthread down_writer([&] { down.write(); });
            std::jthread down_reader([&] { down.read([&] { server_spoke = true; }); });
            up.read([&] { turns += server_spoke.exchange(false) ? 1 : 0; });
        }
        std::printf("turns %d\n", turns.load());
    }
    close(client);
    close(server);
}

} // namespace

int main(int count, char** words)
{
    if (count != 4) {
        std::fputs("delay_relay PORT TARGET_PORT DELAY_MS\n", stderr);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    sockaddr_in here = loopback(words[1]);
    socklen_t size = sizeof here;
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&here), size) != 0 ||
        listen(listener, SOMAXCONN) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&here), &size) != 0) {
        std::perror("delay_relay");
        return 1;
    }
    std::printf("ready %d\n", ntohs(here.sin_port));
    const std::chrono::milliseconds delay(std::atoi(words[3]));
    for (int client = 0; (client = accept(listener, nullptr, nullptr)) >= 0;) {
        std::thread(serve, client, loopback(words[2]), delay).detach();
    }
}

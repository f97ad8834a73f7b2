#include "tcp_connection.hpp"

#include "host_addresses.hpp"

#include <qrftp/error.hpp>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <sys/socket.h>
#include <system_error>
#include <vector>

namespace qrftp::sftp {

namespace {

/// How long an address is tried alone (RFC 8305, 5).
constexpr std::chrono::milliseconds head_start(250);

void set_flag(int fd, int level, int option)
{
    const int on = 1;
    // A socket without the option works as well, only slower.
    [[maybe_unused]] const int result = ::setsockopt(fd, level, option, &on, sizeof on);
}

class attempts {
public:
    explicit attempts(interruptible_wait& wait) : wait_(wait) {}

    /// Returns at once; a failure is kept in `error`.
    void start(const socket_address& address);
    /// The first socket that is connected within `longest`, or none.
    std::optional<unique_fd> wait(std::chrono::milliseconds longest);

    [[nodiscard]] bool empty() const { return sockets_.empty(); }
    [[nodiscard]] int error() const { return error_; }

private:
    interruptible_wait& wait_;
    std::vector<unique_fd> sockets_;
    int error_ = 0;
};

void attempts::start(const socket_address& address)
{
    unique_fd fd(::socket(address.family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd) {
        error_ = errno;
        return;
    }
    set_flag(fd.get(), IPPROTO_TCP, TCP_NODELAY); // Small requests would wait for 40 ms.
    set_flag(fd.get(), SOL_SOCKET, SO_KEEPALIVE);
    if (::connect(fd.get(), address.get(), address.size()) != 0 && errno != EINPROGRESS) {
        error_ = errno;
        return;
    }
    sockets_.push_back(std::move(fd));
}

std::optional<unique_fd> attempts::wait(std::chrono::milliseconds longest)
{
    std::vector<pollfd> polled;
    polled.reserve(sockets_.size());
    for (const unique_fd& fd : sockets_) {
        polled.push_back({fd.get(), POLLOUT, 0});
    }
    wait_.wait(polled, longest);
    for (std::size_t i = polled.size(); i-- > 0;) {
        if (polled[i].revents == 0) {
            continue;
        }
        int error = 0;
        socklen_t size = sizeof error;
        if (::getsockopt(polled[i].fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0) {
            return std::move(sockets_[i]);
        }
        error_ = error;
        sockets_.erase(sockets_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return std::nullopt;
}

} // namespace

unique_fd connect_tcp(const std::string& host, std::uint16_t port, interruptible_wait& wait)
{
    const std::vector<socket_address> addresses = resolve(host, port, wait);
    attempts running(wait);
    for (auto next = addresses.begin(); next != addresses.end() || !running.empty();) {
        if (next != addresses.end()) {
            running.start(*next++);
        }
        const bool last = next == addresses.end();
        while (!running.empty()) {
            if (auto connected = running.wait(last ? std::chrono::hours(1) : head_start)) {
                return std::move(*connected);
            }
            if (!last) {
                break;
            }
        }
    }
    throw NoConnection(wait.subject(), {0, std::generic_category().message(running.error())});
}

} // namespace qrftp::sftp

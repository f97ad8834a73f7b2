#include "agent.hpp"

#include "ssh_wire.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>

namespace qrftp::sftp {

namespace {

constexpr char failure_answer = 5;
constexpr char request_identities = 11;
constexpr char identities_answer = 12;
constexpr char sign_request = 13;
constexpr std::size_t longest_message = std::size_t{256} * 1024;
constexpr std::uint32_t most_keys = 256;

/// Waits until a socket has one of the events; throws when that takes too long.
using waiter = std::function<void(int fd, short events)>;

/// After a call that failed: waits for what it lacked, if it was only that.
bool is_worth_another_call(int fd, short events, const waiter& wait)
{
    if (errno == EAGAIN) {
        wait(fd, events);
        return true;
    }
    return errno == EINTR;
}

bool send_message(int fd, std::string_view message, const waiter& wait)
{
    std::string framed;
    wire::put_string(framed, message);
    for (std::string_view bytes = framed; !bytes.empty();) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && !is_worth_another_call(fd, POLLOUT, wait)) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent > 0 ? sent : 0));
    }
    return true;
}

std::optional<std::string> receive(int fd, std::size_t size, const waiter& wait)
{
    std::string bytes(size, '\0');
    for (std::size_t done = 0; done < size;) {
        const ssize_t got = ::recv(fd, bytes.data() + done, size - done, MSG_DONTWAIT);
        if (got == 0 || (got < 0 && !is_worth_another_call(fd, POLLIN, wait))) {
            return std::nullopt;
        }
        done += static_cast<std::size_t>(got > 0 ? got : 0);
    }
    return bytes;
}

std::optional<std::string> receive_message(int fd, const waiter& wait)
{
    const auto prefix = receive(fd, 4, wait);
    if (!prefix) {
        return std::nullopt;
    }
    std::string_view rest = *prefix;
    const std::uint32_t size = wire::take_u32(rest).value_or(0);
    return size == 0 || size > longest_message ? std::nullopt : receive(fd, size, wait);
}

} // namespace

std::optional<agent> agent::open(std::unique_ptr<interruptible_wait> wait)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read only
    const char* const path = std::getenv("SSH_AUTH_SOCK");
    sockaddr_un address{};
    if (path == nullptr || *path == '\0' || std::strlen(path) >= sizeof address.sun_path) {
        return std::nullopt;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, std::strlen(path));
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket || ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return std::nullopt;
    }
    return agent(std::move(socket), std::move(wait));
}

std::optional<std::string> agent::ask(std::string_view request)
{
    const waiter wait = [this](int fd, short events) { wait_->wait(fd, events); };
    wait_->restart();
    return send_message(socket_.get(), request, wait) ? receive_message(socket_.get(), wait) : std::nullopt;
}

std::vector<std::string> agent::keys()
{
    std::vector<std::string> result;
    const auto answer = ask(std::string(1, request_identities));
    if (!answer || answer->front() != identities_answer) {
        return result;
    }
    std::string_view rest = *answer;
    rest.remove_prefix(1);
    const std::uint32_t count = wire::take_u32(rest).value_or(0);
    while (result.size() < std::min(count, most_keys)) {
        const auto key = wire::take_string(rest);
        const auto comment = wire::take_string(rest);
        if (!key || !comment) {
            break;
        }
        result.emplace_back(*key);
    }
    return result;
}

agent_bridge::agent_bridge(agent real) : real_(std::move(real))
{
}

agent_bridge::~agent_bridge()
{
    end_thread();
}

void agent_bridge::end_thread()
{
    if (thread_.joinable()) {
        ::shutdown(ours_.get(), SHUT_RDWR);
        thread_.join();
    }
}

int agent_bridge::connect()
{
    end_thread();
    std::array<int, 2> ends{-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    ours_ = unique_fd(ends[0]);
    unique_fd theirs(ends[1]);
    thread_ = std::thread([this, socket = ours_.get()] { serve(socket); });
    return theirs.release();
}

void agent_bridge::offer(std::string shown, std::string key)
{
    const std::lock_guard lock(mutex_);
    shown_ = std::move(shown);
    key_ = std::move(key);
}

bool agent_bridge::is_silent()
{
    const std::lock_guard lock(mutex_);
    return silent_;
}

void agent_bridge::serve(int socket)
{
    const waiter wait = [](int fd, short events) {
        pollfd one{fd, events, 0};
        ::poll(&one, 1, -1);
    };
    while (const auto request = receive_message(socket, wait)) {
        if (!send_message(socket, answer(*request), wait)) {
            return;
        }
    }
}

/// libssh waits for each answer without a limit: where none comes in time, it is told of a failure.
std::string agent_bridge::sign(std::string_view request)
{
    try {
        if (auto answer = silent_ ? std::nullopt : real_.ask(request)) {
            return *std::move(answer);
        }
    } catch (const std::exception&) { // `Timeout`, `Cancelled`: what comes later answers no other request.
        silent_ = true;
    }
    return {failure_answer};
}

std::string agent_bridge::answer(std::string_view request)
{
    const std::lock_guard lock(mutex_);
    if (request.front() == request_identities) {
        std::string list(1, identities_answer);
        wire::put_u32(list, 1);
        wire::put_string(list, shown_);
        wire::put_string(list, "");
        return list;
    }
    if (request.front() == sign_request) {
        std::string_view rest = request.substr(1);
        if (wire::take_string(rest) == shown_) {
            std::string forwarded(1, sign_request);
            wire::put_string(forwarded, key_);
            forwarded += rest;
            return sign(forwarded);
        }
    }
    return {failure_answer};
}

} // namespace qrftp::sftp

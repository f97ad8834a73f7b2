#include "agent.hpp"

#include "ssh_wire.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
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

bool send_all(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent > 0 ? sent : 0));
    }
    return true;
}

std::optional<std::string> receive(int fd, std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t done = 0; done < size;) {
        const ssize_t got = ::recv(fd, bytes.data() + done, size - done, 0);
        if (got == 0 || (got < 0 && errno != EINTR)) {
            return std::nullopt;
        }
        done += static_cast<std::size_t>(got > 0 ? got : 0);
    }
    return bytes;
}

bool send_message(int fd, std::string_view message)
{
    std::string framed;
    wire::put_string(framed, message);
    return send_all(fd, framed);
}

std::optional<std::string> receive_message(int fd)
{
    const auto prefix = receive(fd, 4);
    if (!prefix) {
        return std::nullopt;
    }
    std::string_view rest = *prefix;
    const std::uint32_t size = wire::take_u32(rest).value_or(0);
    return size == 0 || size > longest_message ? std::nullopt : receive(fd, size);
}

/// What takes longer fails with EAGAIN; connecting too. 0 means no limit. Whether the system does so.
bool limit_time(int fd, std::chrono::milliseconds limit)
{
    const timeval time{limit.count() / 1000, limit.count() % 1000 * 1000};
    return ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time) == 0 &&
           ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time) == 0;
}

} // namespace

std::optional<agent> agent::open(std::stop_token stop, std::chrono::milliseconds limit)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read only
    const char* const path = std::getenv("SSH_AUTH_SOCK");
    sockaddr_un address{};
    if (path == nullptr || *path == '\0' || std::strlen(path) >= sizeof address.sun_path) {
        return std::nullopt;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, std::strlen(path));
    unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket || !limit_time(socket.get(), limit)) {
        return std::nullopt;
    }
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return std::nullopt;
    }
    return agent(std::move(socket), std::move(stop));
}

std::optional<std::string> agent::ask(std::string_view request)
{
    const auto end = [fd = socket_.get()] { ::shutdown(fd, SHUT_RDWR); };
    const std::stop_callback on_stop(stop_, end);
    errno = 0;
    auto answer = send_message(socket_.get(), request) ? receive_message(socket_.get()) : std::nullopt;
    if (!answer) {
        silent_ = silent_ || errno == EAGAIN;
        end(); // What comes later answers no other request.
    }
    return answer;
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
    return real_.is_silent();
}

/// libssh waits for each answer without a limit: where the agent gives none, the answer is a failure.
void agent_bridge::serve(int socket)
{
    while (const auto request = receive_message(socket)) {
        if (!send_message(socket, answer(*request))) {
            return;
        }
    }
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
            return real_.ask(forwarded).value_or(std::string(1, failure_answer));
        }
    }
    return {failure_answer};
}

} // namespace qrftp::sftp

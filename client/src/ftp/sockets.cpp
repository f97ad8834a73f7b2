#include "sockets.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <array>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qrftp::ftp {

namespace {

/// The address at the other end, without the port; empty when it cannot be told.
std::string peer_address(curl_socket_t socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    std::array<char, NI_MAXHOST> text{};
    auto* const generic = reinterpret_cast<sockaddr*>(&address); // NOLINT(*-reinterpret-cast): made for it
    if (getpeername(socket, generic, &size) != 0 ||
        getnameinfo(generic, size, text.data(), static_cast<socklen_t>(text.size()), nullptr, 0,
                    NI_NUMERICHOST) != 0) {
        return {};
    }
    return text.data();
}

} // namespace

void sockets::set_up(const curl_ptr& handle)
{
    setopt(handle, CURLOPT_OPENSOCKETFUNCTION, &sockets::open);
    setopt(handle, CURLOPT_OPENSOCKETDATA, this);
    setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, &sockets::close);
    setopt(handle, CURLOPT_CLOSESOCKETDATA, this);
    setopt(handle, CURLOPT_SOCKOPTFUNCTION, &sockets::check);
    setopt(handle, CURLOPT_SOCKOPTDATA, this);
}

void sockets::allow()
{
    const std::lock_guard lock(mutex_);
    shut_down_ = false;
    refusal_ = nullptr;
}

void sockets::shut_down() noexcept
{
    const std::lock_guard lock(mutex_);
    shut_down_ = true;
    for (const curl_socket_t each : open_) {
        shutdown(each, SHUT_RDWR); // wakes libcurl, which closes it
    }
}

curl_socket_t sockets::open(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept
try {
    auto& mine = *static_cast<sockets*>(self);
    const std::lock_guard lock(mine.mutex_);
    if (mine.shut_down_) {
        return CURL_SOCKET_BAD;
    }
    mine.open_.reserve(mine.open_.size() + 1);
    const curl_socket_t made = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (made != CURL_SOCKET_BAD) {
        mine.open_.push_back(made);
    }
    return made;
} catch (...) {
    return CURL_SOCKET_BAD; // no memory: libcurl says that it could not connect
}

int sockets::close(void* self, curl_socket_t socket) noexcept
{
    auto& mine = *static_cast<sockets*>(self);
    const std::lock_guard lock(mine.mutex_);
    std::erase(mine.open_, socket);
    return ::close(socket);
}

int sockets::check(void* self, curl_socket_t socket, curlsocktype purpose) noexcept
{
    auto& mine = *static_cast<sockets*>(self);
    if (purpose != CURLSOCKTYPE_ACCEPT || mine.trust_any_peer_) {
        return CURL_SOCKOPT_OK;
    }
    try {
        mine.check_peer(socket);
        return CURL_SOCKOPT_OK;
    } catch (...) {
        mine.refusal_ = std::current_exception();
        return CURL_SOCKOPT_ERROR;
    }
}

/// In active mode anybody may connect to the port that waits for the server. TLS would show who it is.
void sockets::check_peer(curl_socket_t data) const
{
    const std::string from = peer_address(data);
    const std::string server = open_.empty() ? std::string() : peer_address(open_.front());
    if (from.empty() || from != server) {
        throw ProtocolError(server, fmt::format("the data connection came from {}", from));
    }
}

} // namespace qrftp::ftp

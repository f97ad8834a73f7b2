#pragma once

#include "setopt.hpp"

#include <exception>
#include <mutex>
#include <vector>

namespace qrftp::ftp {

/// The sockets that libcurl has open for one connection: another thread can end the waits on them. Outlives the
/// connection.
class sockets {
public:
    /// `trust_any_peer` accepts data connections from other addresses than the server's.
    explicit sockets(bool trust_any_peer) : trust_any_peer_(trust_any_peer) {}
    sockets(const sockets&) = delete;
    sockets& operator=(const sockets&) = delete;
    ~sockets() = default;

    void set_up(const curl_ptr& handle);

    /// A request begins: sockets may be opened (again).
    void allow();
    /// Breaks every connection and lets none be opened: what libcurl is waiting for fails at once. Any thread.
    void shut_down() noexcept;
    /// Why a data connection was refused, or null.
    [[nodiscard]] const std::exception_ptr& refusal() const { return refusal_; }

private:
    static curl_socket_t open(void* self, curlsocktype purpose, curl_sockaddr* address) noexcept;
    static int close(void* self, curl_socket_t socket) noexcept;
    static int check(void* self, curl_socket_t socket, curlsocktype purpose) noexcept;
    void check_peer(curl_socket_t data) const;

    bool trust_any_peer_;
    std::mutex mutex_;
    std::vector<curl_socket_t> open_; ///< the control connection's first
    bool shut_down_ = false;
    std::exception_ptr refusal_;
};

} // namespace qrftp::ftp

#pragma once

#include "interruptible_wait.hpp"
#include "unique_fd.hpp"

#include <cstdint>
#include <string>

namespace qrftp::sftp {

/// How to reach a proxy.
struct proxy_address {
    enum class protocol {
        http,    ///< HTTP CONNECT (RFC 9110, 9.3.6)
        socks5,  ///< SOCKS5 (RFC 1928); names are looked up here
        socks5h, ///< SOCKS5; names are looked up by the proxy
    };
    protocol kind = protocol::http;
    std::string host{};
    std::uint16_t port = 0;
    std::string user{}; ///< with `password`, where `has_credentials`
    std::string password{};
    bool has_credentials = false;
};

/// Connects to `host` through the proxy. Throws `NoConnection` with the proxy's words, `Timeout`, `Cancelled`.
unique_fd connect_through(const proxy_address& proxy, const std::string& host, std::uint16_t port,
                          interruptible_wait& wait);

} // namespace qrftp::sftp

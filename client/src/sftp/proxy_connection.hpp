#pragma once

#include "../proxy_selection.hpp"
#include "../unique_fd.hpp"
#include "interruptible_wait.hpp"

#include <cstdint>
#include <string>

namespace qrftp::sftp {

/// Connects to `host` through the proxy. Throws `ProxyRefused`, `NoConnection`, `Timeout`, `Cancelled`, and
/// `InvalidOption` for a proxy that is neither an HTTP nor a SOCKS5 proxy.
unique_fd connect_through(const proxy_address& proxy, const std::string& host, std::uint16_t port,
                          interruptible_wait& wait);

} // namespace qrftp::sftp

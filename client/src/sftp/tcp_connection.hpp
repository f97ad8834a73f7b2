#pragma once

#include "../unique_fd.hpp"
#include "interruptible_wait.hpp"

#include <cstdint>
#include <string>

namespace qrftp::sftp {

/// Connects to `host`, a name or an address. Every address of a name is tried: the next one as soon as one
/// fails or takes long. The socket does not block, has TCP_NODELAY and SO_KEEPALIVE. Throws `NoConnection`,
/// `Timeout`, `Cancelled`.
unique_fd connect_tcp(const std::string& host, std::uint16_t port, interruptible_wait& wait);

} // namespace qrftp::sftp

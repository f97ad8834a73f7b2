#pragma once

#include "proxy_connection.hpp"

#include <optional>

namespace qrftp::sftp {

/// The proxy of the host program's proxy selector, the same one that FTP goes through; none where it names
/// none. Throws `InvalidOption` for one that is neither an HTTP nor a SOCKS5 proxy.
std::optional<proxy_address> select_proxy();

} // namespace qrftp::sftp

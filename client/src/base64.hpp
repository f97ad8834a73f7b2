#pragma once

#include <string>
#include <string_view>

namespace qrftp {

/// RFC 4648, 4, with padding.
std::string to_base64(std::string_view data);

/// The bytes that `text` stands for; empty when it is not base64 as `to_base64` writes it, or longer than a
/// MiB.
std::string from_base64(std::string_view text);

} // namespace qrftp

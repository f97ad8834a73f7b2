#pragma once

#include <cstdint>
#include <string>

namespace qrftp {

/// "YYYYMMDDHHMMSS" in UTC of seconds since 1970, as MDTM and MFMT write it (RFC 3659, 2.3).
std::string utc_digits(std::int64_t seconds);

} // namespace qrftp

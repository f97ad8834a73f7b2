#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The data types of SSH (RFC 4251, 5), as keys and the agent's protocol use them.
namespace qrftp::sftp::wire {

inline void put_u32(std::string& out, std::uint32_t value)
{
    for (unsigned shift = 32; shift > 0;) {
        shift -= 8;
        out += static_cast<char>(value >> shift & 0xFFU);
    }
}

inline void put_string(std::string& out, std::string_view value)
{
    put_u32(out, static_cast<std::uint32_t>(value.size()));
    out += value;
}

/// Takes a number off `rest`; none where it is too short.
inline std::optional<std::uint32_t> take_u32(std::string_view& rest)
{
    if (rest.size() < 4) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    for (const char c : rest.substr(0, 4)) {
        value = value << 8U | static_cast<unsigned char>(c);
    }
    rest.remove_prefix(4);
    return value;
}

/// Takes a string off `rest`; none where it is too short.
inline std::optional<std::string_view> take_string(std::string_view& rest)
{
    std::string_view after = rest;
    const auto size = take_u32(after);
    if (!size || *size > after.size()) {
        return std::nullopt;
    }
    const std::string_view value = after.substr(0, *size);
    rest = after.substr(*size);
    return value;
}

} // namespace qrftp::sftp::wire

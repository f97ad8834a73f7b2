#pragma once

#include "packet.hpp"

#include <qrftp/entry.hpp>

#include <cstdint>
#include <optional>
#include <string_view>

namespace qrftp::sftp {

/// The attributes of a file (ATTRS). What was not sent is empty; extended attributes are skipped.
struct attributes {
    struct identifiers {
        std::uint32_t user = 0;
        std::uint32_t group = 0;
        bool operator==(const identifiers&) const = default;
    };
    /// Seconds since 1970, UTC.
    struct times {
        std::uint32_t accessed = 0;
        std::uint32_t modified = 0;
        bool operator==(const times&) const = default;
    };

    std::optional<std::uint64_t> size{};
    std::optional<identifiers> owner{};
    std::optional<std::uint32_t> permissions{}; ///< the mode: permission bits and the type's
    std::optional<times> time{};

    bool operator==(const attributes&) const = default;
};

void put(packet_writer& packet, const attributes& values);
/// Throws `ProtocolError` for what is cut, or has an unknown flag.
[[nodiscard]] attributes read_attributes(packet_reader& packet);

/// What the type bits of the mode say; nothing when the server sent no mode, or one without them.
[[nodiscard]] std::optional<entry_kind> kind_of(const attributes& values) noexcept;

/// An entry with what `values` tell; of the kind `other` where they do not say which. Owner and group are
/// numbers.
[[nodiscard]] entry make_entry(std::string_view name, const attributes& values);

} // namespace qrftp::sftp

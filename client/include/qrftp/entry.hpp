#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qrftp {

enum class entry_kind { file, folder, link, other };

/// How much of a modification time the server told.
enum class time_precision { day, minute, second };

/// A modification time as a listing gives it.
struct timestamp {
    /// Seconds since 1970-01-01 00:00. Where `utc` is false the server did not say in which time zone it
    /// counts, and the seconds are those of its clock read as if it were UTC.
    std::int64_t seconds = 0;
    time_precision precision = time_precision::second;
    bool utc = true;

    bool operator==(const timestamp&) const = default;
};

/// One file, folder or link of a remote folder. What the server did not tell is empty.
struct entry {
    std::string name{}; ///< bytes, as the server sends them; never empty, ".", "..", nor with "/" or NUL in it
    entry_kind kind = entry_kind::file;
    std::optional<std::uint64_t> size{}; ///< bytes; of files only
    std::optional<timestamp> modified{};
    std::optional<unsigned> mode{}; ///< POSIX permission bits, 0 to 07777
    std::string owner{};
    std::string group{};
    std::string link_target{}; ///< bytes, as the server sends them; of links only

    bool operator==(const entry&) const = default;
};

} // namespace qrftp

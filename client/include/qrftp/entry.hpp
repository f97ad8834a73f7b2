#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace qrftp {

enum class entry_kind { file, folder, link, other };

/// How much of a modification time the server told.
enum class time_precision { day, minute, second };

/// A modification time as the server gives it.
struct timestamp {
    /// Where `utc` is false the server did not say in which time zone it counts: this is the reading of its
    /// clock taken for UTC.
    std::chrono::sys_seconds time{};
    time_precision precision = time_precision::second;
    bool utc = true;

    /// Whether it is known to the second, in UTC.
    [[nodiscard]] bool is_exact() const noexcept { return utc && precision == time_precision::second; }

    bool operator==(const timestamp&) const = default;
};

/// One file, folder or link of a remote folder. What the server did not tell is empty.
struct entry {
    std::string name{}; ///< bytes, as the server sends them; never empty, ".", "..", nor with "/" or NUL in it
    entry_kind kind = entry_kind::file;
    std::optional<std::uint64_t> size{}; ///< bytes; of files only
    std::optional<timestamp> modified{};
    std::optional<std::filesystem::perms> mode{}; ///< POSIX permission bits, 0 to 07777
    std::string owner{};
    std::string group{};
    std::string link_target{}; ///< bytes, as the server sends them; of links only, where a listing tells it

    bool operator==(const entry&) const = default;
};

/// A remote path, with what is there.
struct remote_entry {
    std::string path{};
    entry what{};
};

} // namespace qrftp

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace qrftp {

/// How far a transfer is.
struct progress {
    std::uint64_t bytes = 0; ///< of the whole file, with what a resumed transfer found
    std::uint64_t total = 0; ///< 0 when it is not known
    double rate = 0;         ///< bytes per second on average
};

/// Options of one transfer, in either direction.
struct transfer_options {
    /// Writes to the target itself. Otherwise the transfer goes to a temporary name beside it (".qrftp-", 16
    /// hexadecimal digits, ".part"), which takes the target's place when all of it has arrived, and is removed
    /// when not.
    bool in_place = false;
    /// Completes a target that holds the beginning of the file, in place. A target that is as long as the file
    /// is complete; a longer one is refused with `CannotResume`. What is there is not compared.
    bool resume = false;
    /// Replaces a target that exists. Otherwise it is refused with `AlreadyExists`.
    bool replace = true;
    /// Fetching: a symbolic link in the place of the target stands for what it leads to. Where the target's
    /// name is the server's choice, set it to false: a link in the place of a file is then replaced itself, and
    /// one in the place of a tree's root is refused (`UnsafeName`), as below the root always.
    bool follow_target = true;
    /// Gives the target the modification time of its source, as far as the server can (MFMT on FTP).
    bool keep_time = false;
    /// Gives the target the permissions of its source, as far as the server can (SITE CHMOD on FTP);
    /// set-user-ID and set-group-ID are never among them. Otherwise a target that is replaced keeps its own,
    /// and a new local file gets what the umask allows, but nothing for others where the source had nothing for
    /// them.
    bool keep_mode = false;
    /// Waits until the storage has the content before the target gets its name (fsync; on SFTP where the server
    /// has it).
    bool sync = false;
    /// Fetching: from which byte of the remote file on, and how many; for transfers that give the bytes to a
    /// program.
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> length{};
    /// Of a file to fetch: its size, as a listing told it. Over FTP, a file of up to 1 MiB that goes to a
    /// temporary name is then fetched without asking for the size first (SIZE), a round trip less; where what
    /// arrives has another one, it is fetched once more, and the server asked. Of no meaning otherwise.
    std::optional<std::uint64_t> listed_size{};
    /// How many connections a large file may use side by side (SFTP).
    unsigned jobs = 1;
    /// Bytes per second; 0 means no limit.
    std::uint64_t rate_limit = 0;
    /// Called several times a second, about every second while nothing moves, and at the end with the final
    /// figures, on the thread of the transfer; false ends it with `Cancelled`.
    std::function<bool(const progress&)> on_progress{};
};

} // namespace qrftp

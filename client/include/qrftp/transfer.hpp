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
    /// Goes on from what an earlier transfer left: from its temporary name, which then follows from the target,
    /// the source, and the size and time of the source, and is not removed when the transfer fails; else from
    /// the beginning of the file that the target itself holds, in place. Such a target that is as long as the
    /// file is complete; a longer one is refused with `CannotResume`; one that is older than the source, by an
    /// exact time, is replaced as without this. What is there is not compared. In trees a target is never
    /// completed but replaced, and with `in_place` this does nothing. A server that does not tell the time of a
    /// file to fetch leaves the second way only.
    bool resume = false;
    /// Replaces a target that exists. Otherwise it is refused with `AlreadyExists`.
    bool replace = true;
    /// Fetching: a symbolic link in the place of the target stands for what it leads to. Where the target's
    /// name is the server's choice, set it to false: a link in the place of a file is then replaced itself, and
    /// one in the place of a tree's root is refused (`UnsafeName`), as below the root always. Pipes and
    /// devices are then refused, too.
    bool follow_target = true;
    /// Gives the target the modification time of its source, as far as the server can (MFMT on FTP).
    bool keep_time = false;
    /// Gives the target the permissions of its source, as far as the server can (SITE CHMOD on FTP);
    /// set-user-ID and set-group-ID are never among them. Otherwise a target that is replaced keeps its own,
    /// and a new local file gets what the umask allows, but nothing for others where the source had nothing for
    /// them. One that replaces another user's local file gets only what both of these allow.
    bool keep_mode = false;
    /// Waits until the storage has the content before the target gets its name (fsync; on SFTP where the server
    /// has it).
    bool sync = false;
    /// Compares the checksums of source and copy before the target gets its name (`ChecksumMismatch`), by the
    /// server's own command (`session::checksum_support`). `NotSupported` is thrown, before anything is
    /// transferred, where it has none, and `InvalidOption` for a part of a file.
    bool verify = false;
    /// Fetching: from which byte of the remote file on, and how many; for transfers that give the bytes to a
    /// program (`InvalidOption` for those to a local file).
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> length{};
    /// Of a file to fetch: its size, as a listing told it. Over FTP, a file of up to 1 MiB that goes to a
    /// temporary name is then fetched without asking for the size first (SIZE), a round trip less; where what
    /// arrives has another one, it is fetched once more, and the server asked. Of no meaning otherwise.
    std::optional<std::uint64_t> listed_size{};
    /// How many connections a large file may use side by side (SFTP); one with `resume` or `verify`. To
    /// OpenSSH's server it is sent by up to four streams of one connection where the line is long, since one
    /// would not fill it; further connections come on top where `jobs` are more. Not with `in_place`.
    unsigned jobs = 1;
    /// In how many segments a large file is fetched, each over a connection of its own and cut at its end. It
    /// is as whole as any other: a failure of one segment, and a file that changes meanwhile, end the fetch. It
    /// comes in one with `resume` or `verify`.
    unsigned segments = 1;
    /// Bytes per second; 0 means no limit.
    std::uint64_t rate_limit = 0;
    /// How often a transfer whose connection broke is taken up again without having got any further; one that
    /// got further begins to count anew. It goes on from where it was if the size and the time of the source
    /// are what they were, and else begins anew; one in parts (`jobs`) then ends with `SizeMismatch`. What a
    /// function gave (`send`) goes on only from where it was.
    unsigned retries = 3;
    /// The pause before the second of them; it doubles from one to the next. The first one comes at once.
    std::chrono::milliseconds retry_delay = std::chrono::seconds(1);
    /// Called several times a second, about every second while nothing moves, and at the end with the final
    /// figures; false ends the transfer with `Cancelled`. Calls come one at a time, of large files on threads
    /// of the library too. It must not use the session.
    std::function<bool(const progress&)> on_progress{};
};

} // namespace qrftp

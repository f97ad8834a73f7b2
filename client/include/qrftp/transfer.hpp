#pragma once

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

struct transfer_options {
    /// Writes to the target itself. Otherwise the transfer goes to a temporary name beside it
    /// (".qrftp-", 16 hexadecimal digits, ".part"), which takes the target's place when all of it has arrived,
    /// and is removed when not.
    bool in_place = false;
    /// Completes a target that holds the beginning of the file, in place. A target that is as long as the file
    /// is complete; a longer one is refused with `error::CannotResume`. What is there is not compared.
    bool resume = false;
    /// Replaces a target that exists. Otherwise it is refused with `error::Exists`.
    bool replace = true;
    /// Gives the target the modification time of its source, as far as the server can (MFMT on FTP).
    bool keep_time = false;
    /// Of a file to fetch: its size, as a listing told it. Over FTP, a file of up to 1 MiB that goes to a
    /// temporary name is then fetched without asking for the size first (SIZE), a round trip less; where what
    /// arrives has another one, it is fetched once more, and the server asked. Of no meaning otherwise.
    std::optional<std::uint64_t> listed_size{};
    /// Bytes per second; 0 means no limit.
    std::uint64_t rate_limit = 0;
    /// Called several times a second on the thread of the transfer; false ends it with `error::Cancelled`.
    std::function<bool(const progress&)> on_progress{};
};

} // namespace qrftp

#pragma once

#include <qrftp/entry.hpp>
#include <qrftpclient_export.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp {

/// The entries of a folder.
struct listing {
    std::vector<entry> entries{};
    std::vector<std::string> skipped{}; ///< lines that could not be read, or whose names are refused
};

enum class listing_format {
    mlsd, ///< the facts of RFC 3659, 7.2
    list, ///< what LIST sends: the long form of Unix or that of Windows, told apart line by line
};

/// Turns the text of a listing into entries while it arrives. It keeps no more of it than one unfinished line.
///
/// "." and "..", a "total" line, blank lines and what MLSD calls cdir and pdir are dropped. Every other line
/// becomes one entry or is skipped: one that cannot be read, one whose name holds "/" or NUL, and
/// one of more than 64 KiB, of which the sink is shown only the first 1024 bytes. One thread at a time.
/// A parser that was moved from can only be assigned to or destroyed.
class QRFTPCLIENT_EXPORT listing_parser {
public:
    using entry_sink = std::function<void(entry&&)>;
    using line_sink = std::function<void(std::string_view)>;

    /// `now` is the time by which the year of a time without one is found.
    listing_parser(listing_format format, entry_sink on_entry, line_sink on_skipped = {},
                   std::chrono::system_clock::time_point now = std::chrono::system_clock::now());
    listing_parser(listing_parser&& other) noexcept;
    listing_parser& operator=(listing_parser&& other) noexcept;
    ~listing_parser();

    /// Takes the next bytes of the listing; lines end with LF or CR LF. What the sinks throw passes through.
    void feed(std::string_view bytes);

    /// Forgets the line that is not finished: the listing is sent once more, from its beginning.
    void restart();

    /// Takes what was fed last as a line although it has no end. A listing that was cut off there is the
    /// caller's to notice.
    void finish();

private:
    class state;
    std::unique_ptr<state> state_;
};

} // namespace qrftp

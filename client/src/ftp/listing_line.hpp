#pragma once

#include <qrftp/entry.hpp>

#include <cstdint>
#include <string_view>

namespace qrftp::lines {

enum class line_content {
    entry,
    nothing, ///< a line that is no entry and no fault
    unreadable,
};

/// Each reads one line without its end into a fresh `found`, which means something only if the answer is
/// `entry`. The name is not looked at yet.
line_content read_mlsd_line(std::string_view line, entry& found);
line_content read_unix_line(std::string_view line, std::int64_t now, entry& found);
line_content read_windows_line(std::string_view line, entry& found);

} // namespace qrftp::lines

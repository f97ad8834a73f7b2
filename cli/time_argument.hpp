#pragma once

#include <chrono>
#include <string>

namespace qrftp::cli {

/// The time that `text` names: "2024-05-01", with "12:30" or "12:30:59" behind a blank or "T"; the local time,
/// or UTC where a "Z" ends it. Throws `usage_error`.
std::chrono::sys_seconds parse_time(const std::string& text);

} // namespace qrftp::cli

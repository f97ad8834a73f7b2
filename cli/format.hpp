#pragma once

#include <qrftp/entry.hpp>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace qrftp::cli {

/// A number of bytes with a binary unit: "64.0 MiB".
std::string human_size(double bytes);

/// A duration as a clock shows it: "1:02:03", "2:03".
std::string clock_time(std::chrono::seconds duration);

/// "2024-05-01 12:30", as far as it is known; with `seconds`, "2024-05-01 12:30:59".
std::string time_text(const timestamp& when, bool seconds = false);

/// ISO 8601, as far as it is known; with "Z" where it is UTC.
std::string iso_time(const timestamp& when);

/// "-rw-r--r--"; "?" for what is not known.
std::string mode_text(const entry& what);

/// "0644".
std::string octal_mode(std::filesystem::perms mode);

/// "file", "folder", "link", "other".
std::string_view kind_text(entry_kind kind);

/// "day", "minute", "second".
std::string_view precision_text(time_precision precision);

/// The bytes in hexadecimal digits.
std::string hex(std::string_view bytes);

/// The sum, or the largest number where it is larger: servers tell sizes that nothing has.
std::uint64_t add_sizes(std::uint64_t one, std::uint64_t other);

/// "1 file", "2 files".
std::string counted(std::uint64_t count, std::string_view what);

} // namespace qrftp::cli

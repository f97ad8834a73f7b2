#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// What parts words.
inline constexpr std::string_view word_blanks = " \t\r\n\v\f";

/// The words of a command line, as sh(1) splits one: blanks part words; single quotes keep everything, double
/// quotes everything but a backslash before a quote or a backslash; a backslash outside quotes keeps the next
/// character; "#" at the beginning of a word opens a comment. Nothing is expanded. Throws `usage_error` for a
/// quote that is not closed and for a backslash at the end.
std::vector<std::string> split_words(const std::string& line);

} // namespace qrftp::cli

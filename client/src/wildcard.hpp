#pragma once

#include <string>
#include <string_view>

namespace qrftp {

/// `text` with the letters of ASCII in lower case.
std::string to_lower(std::string_view text);

/// Whether `text` matches `pattern`: "*" stands for any characters, "?" for one (ssh_config(5), PATTERNS).
bool wildcard_matches(std::string_view pattern, std::string_view text);

/// Whether `text` matches one of the patterns, which commas separate, and none that begins with "!".
bool pattern_list_matches(std::string_view patterns, std::string_view text);

/// Takes the text up to `separators` off `rest`, and the separators after it.
std::string_view take_token(std::string_view& rest, std::string_view separators);

} // namespace qrftp

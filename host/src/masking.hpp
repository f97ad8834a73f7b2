#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace foundation::log {

/// `text` with asterisks in the place of every one of `secrets`. In a record of what libcurl sent ("[HEADER
/// OUT] "), the arguments of PASS and ACCT commands and the values of Proxy-Authorization headers are masked
/// too. Put the longest secrets first.
std::string mask(std::string_view text, const std::vector<std::string>& secrets);

} // namespace foundation::log

#include "masking.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>

#include <algorithm>
#include <cstddef>

namespace foundation::log {

namespace {

constexpr std::string_view asterisks = "****";

/// Where in `line` a secret argument begins, npos when there is none. A command is looked for at the start of
/// the line and behind the bracketed kind that opens a record of the protocol trace.
std::size_t argument_start(std::string_view line)
{
    std::size_t start = 0;
    if (line.starts_with('[')) {
        const std::size_t close = line.find("] ");
        start = close == std::string_view::npos ? 0 : close + 2;
    }
    const std::string_view words = line.substr(start);
    for (const std::string_view command : {"PASS ", "ACCT ", "Proxy-Authorization:"}) {
        if (boost::algorithm::istarts_with(words, command)) {
            return start + command.size();
        }
    }
    return std::string_view::npos;
}

} // namespace

std::string mask(std::string_view text, const std::vector<std::string>& secrets)
{
    // Secrets first: one that holds a line end would otherwise be cut apart by the lines below.
    std::string masked(text);
    for (const std::string& secret : secrets) {
        boost::algorithm::replace_all(masked, secret, asterisks);
    }
    std::string result;
    for (std::string_view rest = masked; !rest.empty();) {
        const std::size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
        const std::string_view line = rest.substr(0, end);
        if (const std::size_t start = argument_start(line); start < line.size()) {
            result.append(line.substr(0, start)).append(line[start] == ' ' ? " " : "").append(asterisks);
        } else {
            result.append(line);
        }
        const std::size_t next = std::min(end + 1, rest.size());
        result.append(rest.substr(end, next - end));
        rest.remove_prefix(next);
    }
    return result;
}

} // namespace foundation::log

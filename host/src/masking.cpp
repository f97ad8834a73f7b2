#include "masking.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>

#include <algorithm>
#include <cstddef>

namespace foundation::log {

namespace {

constexpr std::string_view asterisks = "****";

/// How libcurl's trace begins a record of what was sent on a control connection or to a proxy.
constexpr std::string_view sent = "[HEADER OUT] ";

/// The length of the command or header in front of a secret argument; npos where `line` has none.
std::size_t argument_start(std::string_view line)
{
    for (const std::string_view command : {"PASS ", "ACCT ", "Proxy-Authorization:"}) {
        if (boost::algorithm::istarts_with(line, command)) {
            return command.size();
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
    if (!masked.starts_with(sent)) {
        return masked;
    }
    std::string result(sent);
    for (std::string_view rest = std::string_view(masked).substr(sent.size()); !rest.empty();) {
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

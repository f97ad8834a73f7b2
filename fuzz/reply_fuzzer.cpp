// What a server says on the control connection.
#include "../client/src/ftp/reply.hpp"
#include "fuzz.hpp"
#include <zorbel/io/ftp/core.hpp>
using namespace zorbel::io::ftp::core;
static void fuzz(std::string_view input)
{
    const std::string text(input);
    const auto replies = qrftp::ftp::parse_replies(text);
    std::string joined;
    for (const auto& [code, lines] : replies) {
        const std::string digits = lines[0].substr(0, 3), end = lines.back() + ' ';
        require(digits.size() == 3 && digits.find_first_not_of("0123456789") == none &&
                code == std::stol(digits));
        require(&lines == &replies.back().lines ||
                (lines.size() == 1 ? end[3] != '-' : end.starts_with(digits + ' ')));
        for (const auto& line : lines)
            joined += line + "\r\n";
    }
    require(std::count(joined.begin(), joined.end(), '\n') <=
            std::count(text.begin(), text.end(), '\n') + !text.ends_with('\n'));
    const auto again = qrftp::ftp::parse_replies(joined);
    require(std::ranges::equal(
        replies, again, [](const auto& a, const auto& b) { return a.code == b.code && a.lines == b.lines; }));
    for (const auto& each : replies) {
        const auto size = qrftp::ftp::parse_size(each);
        require(!size || (each.code == 213 && std::stoull(std::string(each.text())) == *size));
    }
    const auto line = match_response_code(text, "257");
    require(line.has_value() == (text.starts_with("257") || text.find("\r\n257") != none));
    require(!line || (line->starts_with("257") && line->find("\r\n") == none && text.find(*line) != none));
    const std::size_t first = text.find('"'), last = text.rfind('"');
    if (!text.starts_with("257") || first == last)
        return; // refused, which takes long
    std::string folder = parse_pwd_response(text), quoted = text.substr(first + 1, last - first - 1);
    require(std::erase(folder, '/') * 2 >= std::erase(quoted, '/') && folder == quoted);
}

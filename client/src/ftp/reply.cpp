#include "ftp_reply.hpp"

#include <zorbel/io/ftp/core/paths.hpp>

#include <charconv>
#include <string_view>

namespace qrftp {

std::vector<ftp_reply> parse_replies(const std::string& text)
{
    constexpr std::size_t code_length = 3;
    std::vector<ftp_reply> replies;
    bool open = false; // in a reply of several lines
    auto lines = zorbel::io::ftp::core::split_string(text, "\n");
    if (lines.back().empty()) {
        lines.pop_back(); // A final line end begins no line.
    }
    for (std::string_view line : lines) {
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        unsigned code = 0; // takes no sign
        const bool coded =
            line.size() >= code_length &&
            std::from_chars(line.data(), line.data() + code_length, code).ptr == line.data() + code_length;
        const char mark = line.size() > code_length ? line[code_length] : ' ';
        if (open) {
            replies.back().lines.emplace_back(line);
            const bool last = coded && mark == ' ' && code == replies.back().code;
            open = !last;
        } else if (coded) {
            replies.push_back({code, {std::string(line)}});
            open = mark == '-';
        }
    }
    return replies;
}

} // namespace qrftp

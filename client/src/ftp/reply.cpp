#include "reply.hpp"

#include "listing_text.hpp"

#include <algorithm>
#include <charconv>
#include <limits>

namespace qrftp::ftp {

namespace {

constexpr std::size_t code_length = 3;

std::string_view take_line(std::string_view& text)
{
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    line.remove_suffix(line.ends_with('\r') ? 1 : 0);
    return line;
}

/// The code that a line begins with, or nothing.
std::optional<long> read_code(std::string_view line)
{
    unsigned code = 0; // takes no sign
    if (line.size() < code_length ||
        std::from_chars(line.data(), line.data() + code_length, code).ptr != line.data() + code_length) {
        return std::nullopt;
    }
    return code;
}

} // namespace

std::string_view reply::text() const
{
    const std::string_view last = lines.empty() ? std::string_view() : lines.back();
    return last.substr(std::min(code_length + 1, last.size()));
}

response reply::said() const
{
    return {code, lines.empty() ? "no reply" : lines.back()};
}

void reply_reader::add(std::string_view text)
{
    while (!text.empty()) {
        const std::string_view line = take_line(text);
        const auto code = read_code(line);
        const char mark = line.size() > code_length ? line[code_length] : ' ';
        if (is_open_) {
            replies_.back().lines.emplace_back(line);
            const bool last = mark == ' ' && code == replies_.back().code;
            is_open_ = !last;
        } else if (code) {
            replies_.push_back({*code, {std::string(line)}});
            is_open_ = mark == '-';
        }
    }
}

std::vector<reply> parse_replies(std::string_view text)
{
    reply_reader reader;
    reader.add(text);
    return reader.replies();
}

std::optional<std::uint64_t> parse_size(const reply& answer)
{
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::string_view text = answer.text();
    text = text.substr(0, text.find_last_not_of(' ') + 1);
    std::uint64_t size = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    const bool whole = error == std::errc() && !text.empty() && end == text.data() + text.size();
    return answer.code == code::file_status && whole && size <= largest ? std::optional(size) : std::nullopt;
}

std::optional<std::chrono::sys_seconds> parse_time(const reply& answer)
{
    const auto told = answer.code == code::file_status ? read_mlsd_time(answer.text()) : std::nullopt;
    return told ? std::optional(told->time) : std::nullopt;
}

} // namespace qrftp::ftp

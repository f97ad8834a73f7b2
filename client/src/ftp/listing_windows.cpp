#include "listing_text.hpp"

#include <string>

namespace qrftp::ftp {

namespace {

bool read_year(scanner& in, unsigned& year)
{
    if (in.number(year, 4, 4)) {
        return true;
    }
    const bool short_year = in.number(year, 2, 2);
    year += year < 70 ? 2000 : 1900;
    return short_year;
}

/// Makes an hour of 24 of one of 12; one that does not exist stays so.
void read_half(scanner& in, unsigned& hour)
{
    scanner after = in;
    after.blanks();
    const std::string_view word = after.word();
    const bool afternoon = equals(word, "pm");
    if (afternoon || equals(word, "am")) {
        const bool exists = hour >= 1 && hour <= 12;
        hour = exists ? hour % 12 + (afternoon ? 12 : 0) : 24;
        in = after;
    }
}

bool read_date(scanner& in, std::optional<timestamp>& modified)
{
    civil_time at;
    if (!(in.number(at.month, 1, 2) && in.take('-') && in.number(at.day, 1, 2) && in.take('-') &&
          read_year(in, at.year) && in.blanks() && in.number(at.hour, 1, 2) && in.take(':') &&
          in.number(at.minute, 2, 2))) {
        return false;
    }
    read_half(in, at.hour);
    if (const auto time = time_of(at)) {
        modified = timestamp{*time, time_precision::minute, false};
    }
    return in.blanks();
}

/// Digits, of which separators part groups of three.
std::optional<std::uint64_t> read_size(std::string_view text)
{
    const std::size_t first = text.find_first_of(",.");
    if (first == std::string_view::npos) {
        return to_number<std::uint64_t>(text);
    }
    std::string digits(text.substr(0, first));
    for (std::size_t at = first; at < text.size(); at += 4) {
        const std::string_view group = text.substr(at + 1, 3);
        if (text[at] != text[first] || group.size() != 3 || !is_number(group)) {
            return std::nullopt;
        }
        digits += group;
    }
    return first >= 1 && first <= 3 ? to_number<std::uint64_t>(digits) : std::nullopt;
}

/// "name [target]". Either may hold brackets; those of a target are taken to be paired.
void split_link(std::string_view text, entry& found)
{
    found.name = text;
    if (!text.ends_with(']')) {
        return;
    }
    std::size_t depth = 0;
    for (std::size_t at = text.size() - 1; at > 1; --at) {
        depth += text[at] == ']' ? 1 : 0;
        depth -= text[at] == '[' ? 1 : 0;
        if (depth == 0) {
            if (text[at - 1] == ' ') {
                found.name = text.substr(0, at - 1);
                found.link_target = text.substr(at + 1, text.size() - at - 2);
            }
            return;
        }
    }
}

line_content read_tagged(scanner in, entry& found)
{
    // The tag and the blanks after it are this wide; further blanks begin the name.
    constexpr std::size_t tag_width = 15;
    const std::string_view text = in.rest();
    const std::string_view tag = in.word();
    if (!in.blanks()) {
        return line_content::unreadable;
    }
    const std::size_t used = text.size() - in.rest().size();
    const std::string_view name = text.substr(std::min(used, std::max(tag_width, tag.size() + 1)));
    if (tag == "<DIR>") {
        found.kind = entry_kind::folder;
        found.name = name;
    } else if (tag == "<JUNCTION>" || tag == "<SYMLINKD>" || tag == "<SYMLINK>") {
        found.kind = entry_kind::link;
        split_link(name, found);
    } else {
        return line_content::unreadable;
    }
    return line_content::entry;
}

} // namespace

line_content read_windows_line(std::string_view line, entry& found)
{
    scanner in(line);
    if (!read_date(in, found.modified)) {
        return line_content::unreadable;
    }
    if (in.rest().starts_with('<')) {
        return read_tagged(in, found);
    }
    found.size = read_size(in.word());
    if (!found.size || !in.take(' ')) {
        return line_content::unreadable;
    }
    found.name = in.rest();
    return line_content::entry;
}

} // namespace qrftp::ftp

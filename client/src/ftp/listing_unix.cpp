#include "listing_text.hpp"

#include <array>

namespace qrftp::ftp {

namespace {

using std::chrono::sys_seconds;
using std::filesystem::perms;

struct columns {
    std::string_view before_size;
    std::string_view size;
    std::optional<timestamp> modified;
    std::string_view name;
};

std::optional<entry_kind> read_kind(char letter)
{
    switch (letter) {
    case '-':
        return entry_kind::file;
    case 'd':
        return entry_kind::folder;
    case 'l':
        return entry_kind::link;
    case 'b':
    case 'c':
    case 'p':
    case 's':
        return entry_kind::other;
    default:
        return std::nullopt;
    }
}

std::optional<perms> read_mode(std::string_view letters)
{
    constexpr std::string_view plain = "rwxrwxrwx";
    // By the place in `letters`: set beside the right to execute, and without it.
    constexpr std::string_view with = "  s  s  t";
    constexpr std::string_view without = "  S  S  T";
    unsigned mode = 0;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        const char letter = letters[i];
        const unsigned right = 0400U >> i;
        const unsigned special = 04000U >> (i / 3);
        if (letter == plain[i]) {
            mode |= right;
        } else if (letter == with[i] && letter != ' ') {
            mode |= right | special;
        } else if ((letter == without[i] && letter != ' ') || (letter == 'l' && i == 5)) {
            mode |= special;
        } else if (letter != '-') {
            return std::nullopt;
        }
    }
    return perms(mode);
}

bool read_month(scanner& in, unsigned& month)
{
    constexpr std::array<std::string_view, 12> names{"jan", "feb", "mar", "apr", "may", "jun",
                                                     "jul", "aug", "sep", "oct", "nov", "dec"};
    scanner after = in;
    const std::string_view word = after.word();
    const auto* const found =
        std::find_if(names.begin(), names.end(), [word](std::string_view name) { return equals(word, name); });
    if (found == names.end()) {
        return false;
    }
    month = static_cast<unsigned>(found - names.begin()) + 1;
    in = after;
    return true;
}

std::optional<sys_seconds> latest_by(civil_time at, sys_seconds limit)
{
    const auto days = std::chrono::floor<std::chrono::days>(limit);
    const auto last = static_cast<unsigned>(static_cast<int>(std::chrono::year_month_day(days).year()));
    // Eight years may lie between two leap days.
    for (at.year = last; at.year + 8 >= last; --at.year) {
        const auto time = time_of(at);
        if (time && *time <= limit) {
            return time;
        }
    }
    return std::nullopt;
}

/// "Mmm DD" or "DD Mmm", then "HH:MM" or "YYYY".
bool read_named_month(scanner& in, sys_seconds now, std::optional<timestamp>& modified)
{
    civil_time at;
    const bool day_first = in.number(at.day, 1, 2);
    if ((day_first && !in.blanks()) || !read_month(in, at.month) || !in.blanks() ||
        (!day_first && !(in.number(at.day, 1, 2) && in.blanks()))) {
        return false;
    }
    std::optional<sys_seconds> time;
    time_precision precision = time_precision::day;
    if (in.number(at.year, 4, 9)) {
        time = time_of(at);
    } else if (in.number(at.hour, 1, 2) && in.take(':') && in.number(at.minute, 2, 2)) {
        time = latest_by(at, now + std::chrono::days(1)); // Its clock may be ahead.
        precision = time_precision::minute;
    } else {
        return false;
    }
    modified = time ? std::optional(timestamp{*time, precision, false}) : std::nullopt;
    return true;
}

/// " +hhmm" with a name behind it; else it is the name.
std::optional<std::chrono::minutes> read_offset(scanner& in)
{
    scanner after = in;
    unsigned offset = 0;
    const bool blank = after.take(' ');
    const bool west = after.rest().starts_with('-');
    if (!blank || !(after.take('+') || after.take('-')) || !after.number(offset, 4, 4) || offset > 1500 ||
        offset % 100 > 59 || !after.rest().starts_with(' ') || after.rest().size() < 2) {
        return std::nullopt;
    }
    in = after;
    const std::chrono::minutes east = std::chrono::hours(offset / 100) + std::chrono::minutes(offset % 100);
    return west ? -east : east;
}

bool read_iso(scanner& in, std::optional<timestamp>& modified)
{
    civil_time at;
    if (!(in.number(at.year, 4, 4) && in.take('-') && in.number(at.month, 2, 2) && in.take('-') &&
          in.number(at.day, 2, 2) && in.blanks() && in.number(at.hour, 2, 2) && in.take(':') &&
          in.number(at.minute, 2, 2))) {
        return false;
    }
    time_precision precision = time_precision::minute;
    if (in.take(':')) {
        unsigned fraction = 0;
        if (!in.number(at.second, 2, 2) || (in.take('.') && !in.number(fraction, 1, 9))) {
            return false;
        }
        precision = time_precision::second;
    }
    const auto offset = read_offset(in);
    const auto time = time_of(at);
    modified.reset();
    if (time) {
        modified = {*time - offset.value_or(std::chrono::minutes(0)), precision, offset.has_value()};
    }
    return true;
}

bool read_date(scanner& in, sys_seconds now, std::optional<timestamp>& modified)
{
    const scanner start = in;
    if (read_iso(in, modified)) {
        return true;
    }
    in = start;
    return read_named_month(in, now, modified);
}

bool may_be_size(std::string_view word, bool device)
{
    return device ? word.find_first_not_of("0123456789,") == std::string_view::npos : is_number(word);
}

/// Finds the size by the date after it, as what is before them may hold anything.
bool find_columns(std::string_view text, bool device, sys_seconds now, columns& found)
{
    scanner in(text);
    in.blanks();
    in.word();
    while (in.blanks()) {
        const std::size_t start = text.size() - in.rest().size();
        const std::string_view word = in.word();
        if (!may_be_size(word, device)) {
            continue;
        }
        scanner after = in;
        if (after.blanks() && read_date(after, now, found.modified) && after.take(' ')) {
            found.before_size = text.substr(0, start);
            found.size = word;
            found.name = after.rest();
            return true;
        }
    }
    return false;
}

std::string_view trim(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// Of more than two words only a single wider gap tells which are the owner.
void split_owners(std::string_view text, entry& found)
{
    std::size_t gap = text.find(' ');
    const auto gap_end = [&] { return text.find_first_not_of(' ', gap); };
    if (gap != std::string_view::npos && text.find(' ', gap_end()) != std::string_view::npos) {
        gap = text.find("  ");
        if (gap == std::string_view::npos || text.find("  ", gap_end()) != std::string_view::npos) {
            return;
        }
    }
    found.owner = text.substr(0, gap);
    if (gap != std::string_view::npos) {
        found.group = text.substr(gap_end());
    }
}

void set_owners(std::string_view before_size, bool device, entry& found)
{
    std::string_view text = trim(before_size);
    const std::string_view links = text.substr(0, text.find(' '));
    if (is_number(links) || links == "?") {
        text = trim(text.substr(links.size()));
    }
    if (device && text.ends_with(',')) {
        text = trim(text.substr(0, text.find_last_of(' ') + 1));
    }
    split_owners(text, found);
}

/// A name may hold the arrow too; the size of a link is the length of its target.
void split_link(std::string_view text, std::optional<std::uint64_t> size, entry& found)
{
    constexpr std::string_view arrow = " -> ";
    std::size_t split = text.find(arrow, 1);
    for (std::size_t at = split; at != std::string_view::npos; at = text.find(arrow, at + 1)) {
        if (text.size() - at - arrow.size() == size) {
            split = at;
            break;
        }
    }
    if (split != std::string_view::npos) {
        found.link_target = text.substr(split + arrow.size());
    } else if (text.starts_with(arrow)) {
        split = 0;
    }
    found.name = text.substr(0, split);
}

} // namespace

line_content read_unix_line(std::string_view line, sys_seconds now, entry& found)
{
    constexpr std::size_t mode_letters = 10;
    if (line.size() <= mode_letters) {
        return line_content::unreadable;
    }
    const auto kind = read_kind(line[0]);
    found.mode = read_mode(line.substr(1, mode_letters - 1));
    const bool device = line[0] == 'b' || line[0] == 'c';
    std::string_view text = line.substr(mode_letters);
    text.remove_prefix(std::string_view("+.@").find(text[0]) != std::string_view::npos ? 1 : 0);
    columns read;
    // A great count of links may touch the mode.
    const bool apart = text.starts_with(' ') || (!text.empty() && is_digit(text[0]));
    if (!kind || !found.mode || !apart || !find_columns(text, device, now, read)) {
        return line_content::unreadable;
    }
    found.kind = *kind;
    found.modified = read.modified;
    set_owners(read.before_size, device, found);
    const auto size = to_number<std::uint64_t>(read.size);
    if (*kind == entry_kind::link) {
        split_link(read.name, size, found);
        return line_content::entry;
    }
    found.name = read.name;
    if (*kind == entry_kind::file) {
        found.size = size;
    }
    return line_content::entry;
}

} // namespace qrftp::ftp

#include "listing_text.hpp"

#include <array>
#include <utility>

namespace qrftp::ftp {

namespace {

struct facts {
    std::string_view type;
    std::string_view size;
    std::string_view modify;
    std::string_view mode;
    std::string_view owner;
    std::string_view owner_name;
    std::string_view group;
    std::string_view group_name;
};

constexpr std::array<std::pair<std::string_view, std::string_view facts::*>, 10> known_facts{{
    {"type", &facts::type},
    {"size", &facts::size},
    {"modify", &facts::modify},
    {"unix.mode", &facts::mode},
    {"unix.owner", &facts::owner},
    {"unix.uid", &facts::owner},
    {"unix.ownername", &facts::owner_name},
    {"unix.group", &facts::group},
    {"unix.gid", &facts::group},
    {"unix.groupname", &facts::group_name},
}};

bool has_prefix(std::string_view text, std::string_view lower_case)
{
    return equals(text.substr(0, lower_case.size()), lower_case);
}

bool keep(std::string_view fact, facts& told)
{
    const std::size_t equals_sign = fact.find('=');
    if (equals_sign == 0 || equals_sign == std::string_view::npos) {
        return false;
    }
    const std::string_view name = fact.substr(0, equals_sign);
    const auto* const known = std::find_if(known_facts.begin(), known_facts.end(),
                                           [name](const auto& each) { return equals(name, each.first); });
    if (known != known_facts.end()) {
        told.*(known->second) = fact.substr(equals_sign + 1);
    }
    return true;
}

/// Against the standard, servers send blanks in targets of links and in names of users and groups.
std::size_t end_of_fact(std::string_view line)
{
    constexpr std::array<std::string_view, 3> with_blanks{"type=os.unix=slink:", "unix.owner", "unix.group"};
    const bool free = std::any_of(with_blanks.begin(), with_blanks.end(),
                                  [line](std::string_view each) { return has_prefix(line, each); });
    const std::size_t semicolon = line.find(';');
    return free && semicolon != std::string_view::npos ? semicolon : line.find_first_of("; ");
}

/// Leaves the name in `line`.
bool take_facts(std::string_view& line, facts& told)
{
    while (!line.starts_with(' ')) {
        const std::size_t end = end_of_fact(line);
        if (end == std::string_view::npos || !keep(line.substr(0, end), told)) {
            return false;
        }
        line.remove_prefix(line[end] == ';' ? end + 1 : end);
    }
    line.remove_prefix(1);
    return true;
}

void set_kind(const facts& told, entry& found)
{
    constexpr std::string_view unix_kind = "os.unix=";
    found.kind = entry_kind::other;
    if (equals(told.type, "file") || (told.type.empty() && !told.size.empty())) {
        found.kind = entry_kind::file;
    } else if (equals(told.type, "dir")) {
        found.kind = entry_kind::folder;
    } else if (has_prefix(told.type, unix_kind)) {
        const std::string_view value = told.type.substr(unix_kind.size());
        const std::size_t colon = std::min(value.find(':'), value.size());
        const std::string_view kind = value.substr(0, colon);
        if (equals(kind, "slink") || equals(kind, "symlink")) {
            found.kind = entry_kind::link;
            found.link_target = value.substr(std::min(colon + 1, value.size()));
        }
    }
}

} // namespace

std::optional<timestamp> read_mlsd_time(std::string_view text)
{
    constexpr std::size_t digits = 14;
    const auto part = [text](std::size_t from, std::size_t count) {
        return to_number<unsigned>(text.substr(from, count)).value_or(0);
    };
    if (!is_number(text.substr(0, text.find('.'))) || std::min(text.find('.'), text.size()) != digits) {
        return std::nullopt;
    }
    const auto time = time_of({part(0, 4), part(4, 2), part(6, 2), part(8, 2), part(10, 2), part(12, 2)});
    return time ? std::optional(timestamp{*time, time_precision::second, true}) : std::nullopt;
}

line_content read_mlsd_line(std::string_view line, entry& found)
{
    facts told;
    if (!take_facts(line, told)) {
        return line_content::unreadable;
    }
    if (equals(told.type, "cdir") || equals(told.type, "pdir")) {
        return line_content::nothing;
    }
    set_kind(told, found);
    if (found.kind == entry_kind::file) {
        found.size = to_number<std::uint64_t>(told.size); // What is no number of bytes is no size.
    }
    found.modified = read_mlsd_time(told.modify);
    if (const auto mode = to_number<unsigned>(told.mode, 8)) {
        found.mode = std::filesystem::perms(*mode) & std::filesystem::perms::mask; // Some send the kind above.
    }
    found.owner = told.owner_name.empty() ? told.owner : told.owner_name;
    found.group = told.group_name.empty() ? told.group : told.group_name;
    found.name = line;
    return line_content::entry;
}

} // namespace qrftp::ftp

#include "output.hpp"

#include "columns.hpp"
#include "progress_display.hpp"

#include <fl/i18n/errors.hpp>
#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/log/sink.hpp>
#include <foundation/text/escape.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <iostream>

#include <unistd.h>

namespace qrftp::cli {

namespace {

bool is_utf8(const std::string& bytes)
try {
    fl::i18n::utf8_to_ustring(bytes);
    return true;
} catch (const ZORBEL::fl::i18n::InvalidText&) {
    return false;
}

std::string hex(std::string_view bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

std::string formatted(const timestamp& when, const char* format)
{
    const std::time_t seconds = when.seconds;
    std::tm parts{};
    std::array<char, 64> text{};
    return gmtime_r(&seconds, &parts) == nullptr
               ? "?"
               : std::string(text.data(), std::strftime(text.data(), text.size(), format, &parts));
}

std::string iso_time(const timestamp& when)
{
    const std::string zone = when.utc ? "Z" : "";
    switch (when.precision) {
    case time_precision::day:
        return formatted(when, "%Y-%m-%d");
    case time_precision::minute:
        return formatted(when, "%Y-%m-%dT%H:%M") + zone;
    default:
        return formatted(when, "%Y-%m-%dT%H:%M:%S") + zone;
    }
}

std::string octal(unsigned mode)
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%04o", mode);
    return text.data();
}

const char* precision_text(time_precision precision)
{
    return precision == time_precision::day ? "day" : precision == time_precision::minute ? "minute" : "second";
}

const char* colour_of(const entry& what)
{
    switch (what.kind) {
    case entry_kind::folder:
        return "\x1b[1;34m";
    case entry_kind::link:
        return "\x1b[1;36m";
    default:
        return what.kind == entry_kind::file && (what.mode.value_or(0) & 0111U) != 0 ? "\x1b[1;32m" : "";
    }
}

std::string padded(const std::string& text, std::size_t width, bool right = false)
{
    const std::string blanks(width - std::min(width, columns(text)), ' ');
    return right ? blanks + text : text + blanks;
}

const char* name_of(tree_action::kind what)
{
    static constexpr std::array names{"make_folder", "copy", "remove_file", "remove_folder"};
    return names.at(static_cast<std::size_t>(what));
}

const char* name_of(tree_action::reason why)
{
    static constexpr std::array names{"wanted", "missing", "newer", "other_size", "extra"};
    return names.at(static_cast<std::size_t>(why));
}

} // namespace

std::string printable(std::string_view text)
{
    return foundation::text::escape(text);
}

void note(const settings& how, std::string_view text)
{
    if (!how.quiet) {
        std::cout.flush();
        std::cerr << "qrftp: " << foundation::log::masked(text) << '\n';
    }
}

void print(std::string_view text)
{
    if (!std::cout.write(text.data(), static_cast<std::streamsize>(text.size()))) {
        throw output_failed("The output could not be written.");
    }
}

void flush_output()
{
    print("");
    if (!std::cout.flush()) {
        throw output_failed("The output could not be written.");
    }
}

void print_line(const std::string& line)
{
    print(line + '\n');
}

void print_line(const json& object)
{
    print_line(object.dump(-1, ' ', false, json::error_handler_t::replace));
}

void add_bytes(json& object, const std::string& key, const std::string& bytes)
{
    if (bytes.empty()) {
        return;
    }
    object[key] = bytes;
    if (!is_utf8(bytes)) {
        object[key + "_hex"] = hex(bytes);
    }
}

json to_json(const entry& what, const std::string& path)
{
    json object = json::object();
    add_bytes(object, "path", path);
    add_bytes(object, "name", what.name);
    object["type"] = kind_text(what.kind);
    if (what.size) {
        object["size"] = *what.size;
    }
    if (what.modified) {
        object["modified"] = iso_time(*what.modified);
        object["precision"] = precision_text(what.modified->precision);
    }
    if (what.mode) {
        object["mode"] = octal(*what.mode);
    }
    add_bytes(object, "owner", what.owner);
    add_bytes(object, "group", what.group);
    add_bytes(object, "target", what.link_target);
    return object;
}

std::string size_text(std::uint64_t bytes, const settings& how)
{
    return how.human ? readable(static_cast<double>(bytes)) : std::to_string(bytes);
}

std::string time_text(const timestamp& when)
{
    return formatted(when, when.precision == time_precision::day ? "%Y-%m-%d" : "%Y-%m-%d %H:%M");
}

std::string mode_text(const entry& what)
{
    const std::string type(1, what.kind == entry_kind::folder ? 'd'
                              : what.kind == entry_kind::link ? 'l'
                              : what.kind == entry_kind::file ? '-'
                                                              : '?');
    if (!what.mode) {
        return type + "?????????";
    }
    std::string text = "rwxrwxrwx";
    for (unsigned bit = 0; bit < 9; ++bit) {
        text[8 - bit] = (*what.mode >> bit & 1U) != 0 ? text[8 - bit] : '-';
    }
    const auto mark = [&](unsigned bit, std::size_t place, char executable, char other) {
        if ((*what.mode & bit) != 0) {
            text[place] = text[place] == 'x' ? executable : other;
        }
    };
    mark(04000, 2, 's', 'S');
    mark(02000, 5, 's', 'S');
    mark(01000, 8, 't', 'T');
    return type + text;
}

std::string kind_text(entry_kind kind)
{
    static constexpr std::array names{"file", "folder", "link", "other"};
    return names.at(static_cast<std::size_t>(kind));
}

std::string coloured_name(const entry& what, const settings& how)
{
    const std::string colour = how.colour ? colour_of(what) : "";
    return colour + printable(what.name) + (colour.empty() ? "" : "\x1b[0m");
}

void print_names(const std::vector<entry>& entries, const settings& how)
{
    std::vector<std::size_t> widths;
    std::size_t widest = 0;
    for (const entry& one : entries) {
        widths.push_back(columns(printable(one.name)));
        widest = std::max(widest, widths.back());
    }
    const std::size_t fit = terminal_size::of(STDOUT_FILENO).columns / (widest + 2);
    const std::size_t across = isatty(STDOUT_FILENO) == 0 ? 1 : std::max<std::size_t>(fit, 1);
    const std::size_t down = (entries.size() + across - 1) / across;
    for (std::size_t row = 0; row < down; ++row) {
        for (std::size_t index = row; index < entries.size(); index += down) {
            const bool last = index + down >= entries.size();
            print(coloured_name(entries[index], how) +
                  (last ? "\n" : std::string(widest + 2 - widths[index], ' ')));
        }
    }
}

void print_long(const std::vector<entry>& entries, const settings& how)
{
    constexpr std::size_t cells = 5;
    std::vector<std::array<std::string, cells>> table;
    std::array<std::size_t, cells> widths{};
    for (const entry& one : entries) {
        const auto or_dash = [](const std::string& text) { return text.empty() ? "-" : printable(text); };
        table.push_back({mode_text(one), or_dash(one.owner), or_dash(one.group),
                         one.size ? size_text(*one.size, how) : "-",
                         one.modified ? time_text(*one.modified) : "-"});
        for (std::size_t cell = 0; cell < cells; ++cell) {
            widths.at(cell) = std::max(widths.at(cell), columns(table.back().at(cell)));
        }
    }
    for (std::size_t row = 0; row < entries.size(); ++row) {
        for (std::size_t cell = 0; cell < cells; ++cell) {
            print(padded(table[row].at(cell), widths.at(cell), cell == 3) + ' ');
        }
        const std::string& target = entries[row].link_target;
        print_line(coloured_name(entries[row], how) + (target.empty() ? "" : " -> " + printable(target)));
    }
}

std::string with_blanks(std::string words)
{
    std::replace(words.begin(), words.end(), '_', ' ');
    return words;
}

void print_action(const tree_action& action, const settings& how)
{
    const std::string path = action.path.empty() ? "." : action.path;
    if (!how.json) {
        const std::string why =
            action.why == tree_action::reason::wanted ? "" : " (" + with_blanks(name_of(action.why)) + ")";
        print_line(with_blanks(name_of(action.what)) + " " + printable(path) + why);
        return;
    }
    json object{{"action", name_of(action.what)}, {"reason", name_of(action.why)}};
    add_bytes(object, "path", path);
    if (action.what == tree_action::kind::copy) {
        object["size"] = action.size;
    }
    if (how.dry_run) {
        object["dry_run"] = true;
    }
    print_line(object);
}

std::string join(const std::string& folder, const std::string& name)
{
    if (folder.empty() || folder == ".") {
        return name;
    }
    return folder.ends_with('/') ? folder + name : folder + '/' + name;
}

std::string last_segment(std::string_view path)
{
    path = path.substr(0, path.find_last_not_of('/') + 1);
    return std::string(path.substr(path.rfind('/') + 1));
}

} // namespace qrftp::cli

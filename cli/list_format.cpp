#include "list_format.hpp"

#include "format.hpp"
#include "output.hpp"
#include "table.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <string_view>

#include <unistd.h>

namespace qrftp::cli {

namespace {

constexpr std::string_view colour_end = "\x1b[0m";

std::string_view colour_of(const entry& what)
{
    constexpr auto executable = std::filesystem::perms::owner_exec | std::filesystem::perms::group_exec |
                                std::filesystem::perms::others_exec;
    if (what.kind == entry_kind::folder) {
        return "\x1b[1;34m";
    }
    if (what.kind == entry_kind::link) {
        return "\x1b[1;36m";
    }
    const bool is_program =
        what.kind == entry_kind::file && what.mode && (*what.mode & executable) != std::filesystem::perms::none;
    return is_program ? "\x1b[1;32m" : "";
}

cell name_cell(const entry& what, const settings& options)
{
    const std::string_view colour = options.colour ? colour_of(what) : "";
    return {escape(what.name), colour, colour.empty() ? "" : colour_end};
}

cell or_dash(const std::string& text)
{
    return {text.empty() ? "-" : escape(text)};
}

} // namespace

std::string size_text(std::uint64_t bytes, const settings& options)
{
    return options.human ? human_size(static_cast<double>(bytes)) : fmt::to_string(bytes);
}

std::string coloured_name(const entry& what, const settings& options)
{
    const cell name = name_cell(what, options);
    return fmt::format("{}{}{}", name.before, name.text, name.after);
}

void print_names(const std::vector<entry>& entries, const settings& options, bool one_column)
{
    std::vector<cell> names;
    names.reserve(entries.size());
    for (const entry& one : entries) {
        names.push_back(name_cell(one, options));
    }
    print(in_columns(names,
                     one_column || isatty(STDOUT_FILENO) == 0 ? 0 : terminal_size::of(STDOUT_FILENO).columns));
}

void print_long(const std::vector<entry>& entries, const settings& options)
{
    std::vector<std::vector<cell>> rows;
    for (const entry& one : entries) {
        std::string name = coloured_name(one, options);
        if (!one.link_target.empty()) {
            name += " -> " + escape(one.link_target);
        }
        rows.push_back(
            {{mode_text(one)},
             or_dash(one.owner),
             or_dash(one.group),
             or_dash(one.size ? size_text(*one.size, options) : ""),
             or_dash(one.modified ? time_text(*one.modified) + (one.modified->utc ? " UTC" : " server") : ""),
             {std::move(name)}});
    }
    print(in_rows(rows, "lllrll"));
}

} // namespace qrftp::cli

#include "batch.hpp"
#include "change.hpp"
#include "commands.hpp"
#include "format.hpp"
#include "json.hpp"
#include "list_format.hpp"
#include "mode_change.hpp"
#include "output.hpp"
#include "remote_glob.hpp"
#include "table.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <ranges>

namespace qrftp::cli {

namespace {

void set_mode(session& remote, const mode_change& mode, const std::string& path, const entry& what,
              const settings& options)
{
    if (mode.needs_mode() && (!what.mode || what.kind == entry_kind::link)) {
        throw Refused(path, {.message = what.kind == entry_kind::link
                                            ? "it is a link: name what it leads to, or give the mode in digits"
                                            : "the server does not tell its mode: give the new one in digits"});
    }
    const auto changed =
        mode.apply(what.mode.value_or(std::filesystem::perms::none), what.kind == entry_kind::folder);
    carry_out({"set_mode", path, octal_mode(changed), "mode"}, options,
              [&] { remote.set_permissions(path, changed); });
}

/// What is below a folder comes before it, which may no longer be entered then. Links are passed over.
void set_modes_below(session& remote, const mode_change& mode, const std::string& path, const settings& options)
{
    std::vector<remote_entry> found;
    walk(remote, path, [&](remote_entry&& one) { found.push_back(std::move(one)); });
    batch all(false);
    for (const remote_entry& one : std::views::reverse(found)) {
        if (one.what.kind != entry_kind::link) {
            all.attempt([&] { set_mode(remote, mode, one.path, one.what, options); });
        }
    }
    all.finish();
}

void touch_one(session& remote, const std::string& path, const touch_arguments& arguments)
{
    if (!remote.exists(path)) {
        if (arguments.no_create) {
            return;
        }
        remote.send_string("", path, {.replace = false});
        if (!arguments.when) {
            return;
        }
    }
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    remote.set_modification_time(path, arguments.when.value_or(now));
}

std::vector<cell> row_of(const std::string& path, const disk_space& room, const settings& options)
{
    const auto text = [&](std::optional<std::uint64_t> bytes) {
        return cell{bytes ? size_text(*bytes, options) : "-"};
    };
    std::optional<std::uint64_t> used;
    if (room.total && room.free) {
        used = *room.total - *room.free;
    }
    return {text(room.total), text(used), text(room.available), {escape(path)}};
}

void print_room(const std::string& path, const disk_space& room)
{
    json object = json::object();
    add_bytes(object, "path", path);
    if (room.total && room.free) {
        object["total"] = *room.total;
        object["used"] = *room.total - *room.free;
    }
    object["available"] = room.available;
    print_json(object);
}

} // namespace

void chmod(session& remote, const std::string& mode, const std::vector<std::string>& patterns, bool recursive,
           const settings& options)
{
    const mode_change wanted(mode);
    for_each_match(remote, patterns, [&](const std::string& pattern) {
        const std::string path = or_here(pattern);
        const bool look = wanted.needs_mode() || recursive || options.dry_run;
        const entry what = look ? remote.stat(path) : entry{};
        if (recursive && what.kind == entry_kind::folder) {
            set_modes_below(remote, wanted, path, options);
        }
        set_mode(remote, wanted, path, what, options);
    });
}

void ln(session& remote, const std::string& target, const std::string& path, bool symbolic,
        const settings& options)
{
    const bool into = path.empty() || path.ends_with('/') || remote.is_folder(path);
    const std::string name = into ? join(path, last_segment(target)) : path;
    carry_out({symbolic ? "make_link" : "make_hard_link", name, target}, options,
              [&] { symbolic ? remote.make_link(target, name) : remote.make_hard_link(target, name); });
}

void df(session& remote, const std::vector<std::string>& paths, const settings& options)
{
    std::vector<std::vector<cell>> rows{{{"Size"}, {"Used"}, {"Available"}, {"Path"}}};
    batch all(paths.size() <= 1);
    for (const std::string& one : paths) {
        all.attempt([&] {
            const std::string path = or_here(one);
            const disk_space room = remote.space(path);
            options.json ? print_room(path, room) : rows.push_back(row_of(path, room, options));
        });
    }
    print(rows.size() > 1 ? in_rows(rows, "rrrl") : "");
    flush_output();
    all.finish();
}

void touch(session& remote, const touch_arguments& arguments, const settings& options)
{
    batch all(arguments.paths.size() <= 1);
    for (const std::string& path : arguments.paths) {
        all.attempt([&] { carry_out({"touch", path}, options, [&] { touch_one(remote, path, arguments); }); });
    }
    all.finish();
}

} // namespace qrftp::cli

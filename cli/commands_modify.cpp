#include "batch.hpp"
#include "change.hpp"
#include "commands.hpp"
#include "output.hpp"
#include "remote_glob.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <ranges>
#include <string_view>
#include <utility>

namespace qrftp::cli {

namespace {

bool is_same_or_above(const std::string& folder, const std::string& place)
{
    return folder == "/" || place == folder || place.starts_with(folder + '/');
}

/// An empty path is the login folder, and what is left out of a URL by mistake.
void refuse_top(session& remote, const std::string& path)
{
    const std::string whole = remote.absolute(or_here(path));
    if (is_same_or_above(whole, remote.working_folder())) {
        throw usage_error(
            fmt::format("\"{}\" is the working folder or a folder above it, which is not removed: "
                        "name what is in it.",
                        escape(whole)));
    }
}

[[noreturn]] void refuse_folder(const std::string& path)
{
    throw needs_recursion(fmt::format("\"{}\" is a folder; -r removes it with all that is in it.", path));
}

void remove(session& remote, const std::string& path, bool folder, bool recursive, const settings& options)
{
    carry_out({folder ? "remove_folder" : "remove_file", path}, options, [&] {
        if (folder) {
            remote.remove_folder(path, recursive);
            return;
        }
        try {
            remote.remove_file(path);
        } catch (const IsFolder&) {
            refuse_folder(path);
        }
    });
}

/// Prints all that removing a folder would remove.
void print_removal(session& remote, const std::string& top, const settings& options)
{
    std::vector<std::string> folders{top};
    const auto take = [&](remote_entry&& one) {
        if (one.what.kind == entry_kind::folder) {
            folders.push_back(std::move(one.path));
        } else {
            remove(remote, one.path, false, false, options);
        }
    };
    walk(remote, top, take, {.on_skipped = [](const std::string& folder, std::string_view) {
             throw IncompleteListing(folder, "it holds a line that cannot be read");
         }});
    for (const std::string& folder : std::views::reverse(folders)) {
        remove(remote, folder, true, true, options);
    }
}

/// Removes a file, and a folder only where `recursive`.
void remove_any(session& remote, const std::string& path, bool folder, bool recursive, const settings& options)
{
    if (folder && !recursive) {
        refuse_folder(path);
    }
    refuse_top(remote, path);
    if (folder && options.dry_run) {
        print_removal(remote, path, options);
        return;
    }
    remove(remote, path, folder, recursive, options);
}

void remove_matching(session& remote, const std::string& pattern, bool recursive, const settings& options)
{
    const std::vector<remote_entry> found = expand_glob(remote, pattern);
    batch all(found.size() == 1);
    for (const remote_entry& one : found) {
        all.attempt(
            [&] { remove_any(remote, one.path, one.what.kind == entry_kind::folder, recursive, options); });
    }
    all.finish();
}

} // namespace

void rm(session& remote, const std::vector<std::string>& patterns, bool recursive, const settings& options)
{
    batch all(patterns.size() == 1);
    for (const std::string& pattern : patterns) {
        all.attempt([&] {
            if (has_magic(pattern)) {
                remove_matching(remote, pattern, recursive, options);
                return;
            }
            const std::string path = glob_unescape(pattern);
            refuse_top(remote, path);
            const bool look = recursive || options.dry_run;
            const bool folder = look && remote.stat(path).kind == entry_kind::folder;
            remove_any(remote, path, folder, recursive, options);
        });
    }
    all.finish();
}

void mv(session& remote, const std::string& from, const std::string& to, bool replace, const settings& options)
{
    const bool into = to.ends_with('/') || remote.is_folder(to);
    const std::string target = into ? join(to, last_segment(from)) : to;
    if (options.dry_run) {
        (void)remote.stat(from);
    }
    carry_out({"rename", from, target}, options, [&] { remote.rename(from, target, replace); });
}

void mkdir(session& remote, const std::vector<std::string>& paths, bool parents, const settings& options)
{
    batch all(paths.size() == 1);
    for (const std::string& path : paths) {
        all.attempt([&] {
            carry_out({"make_folder", path}, options, [&] { remote.make_folder(path, parents); });
        });
    }
    all.finish();
}

void rmdir(session& remote, const std::vector<std::string>& paths, const settings& options)
{
    batch all(paths.size() == 1);
    for (const std::string& path : paths) {
        all.attempt([&] {
            refuse_top(remote, path);
            remove(remote, path, true, false, options);
        });
    }
    all.finish();
}

} // namespace qrftp::cli

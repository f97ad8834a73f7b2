#include "commands.hpp"
#include "exit_status.hpp"
#include "expand.hpp"
#include "output.hpp"

#include <functional>

namespace qrftp::cli {

namespace {

/// Tells of what is done, where anybody wants to know, and does it unless it is a dry run.
void carry_out(const char* action, const std::string& path, const std::string& target, const settings& how,
               const std::function<void()>& act)
{
    if (!how.dry_run) {
        act();
    }
    if (how.json) {
        json object{{"action", action}};
        add_bytes(object, "path", path);
        add_bytes(object, "target", target);
        if (how.dry_run) {
            object["dry_run"] = true;
        }
        print_line(object);
    } else if (how.dry_run || how.verbose) {
        print_line(with_blanks(action) + " " + printable(path) +
                   (target.empty() ? "" : " to " + printable(target)));
    }
    flush_output();
}

/// An empty path is the login folder, and what is left out of a URL by mistake.
void refuse_top(session& remote, const std::string& path)
{
    const std::string whole = remote.absolute(path);
    if (path.empty() || whole == "/" || whole == remote.working_folder()) {
        throw usage_error("\"" + whole + "\" is a folder that is not removed as a whole: name what is in it.");
    }
}

void remove(session& remote, const std::string& path, bool folder, bool recursive, const settings& how)
{
    carry_out(folder ? "remove_folder" : "remove_file", path, "", how, [&] {
        if (folder) {
            remote.remove_folder(path, recursive);
        } else {
            remote.remove_file(path);
        }
    });
}

/// Removes a folder only where it was told to.
void remove_as_told(session& remote, const std::string& path, bool folder, bool recursive, const settings& how)
{
    if (folder && !recursive) {
        foundation::core::except::raise<error::IsFolder>(path);
    }
    remove(remote, path, folder, recursive, how);
}

void remove_matching(session& remote, const std::string& pattern, bool recursive, const settings& how)
{
    const std::vector<located> found = expand_glob(remote, pattern);
    attempts all(found.size() == 1);
    for (const located& one : found) {
        all.attempt(
            [&] { remove_as_told(remote, one.path, one.what.kind == entry_kind::folder, recursive, how); });
    }
    all.finish();
}

} // namespace

void rm(session& remote, const std::vector<std::string>& paths, bool recursive, const settings& how)
{
    attempts all(paths.size() == 1);
    for (const std::string& path : paths) {
        all.attempt([&] {
            refuse_top(remote, path);
            if (has_glob(path)) {
                remove_matching(remote, path, recursive, how);
                return;
            }
            const bool look = recursive || how.dry_run;
            const bool folder = look && remote.stat(path).kind == entry_kind::folder;
            remove_as_told(remote, path, folder, recursive, how);
        });
    }
    all.finish();
}

void mv(session& remote, const std::string& from, const std::string& to, bool replace, const settings& how)
{
    const bool into = to.ends_with('/') || remote.is_folder(to);
    const std::string target = into ? join(to, last_segment(from)) : to;
    if (how.dry_run) {
        remote.stat(from);
    }
    carry_out("rename", from, target, how, [&] { remote.rename(from, target, replace); });
}

void mkdir(session& remote, const std::vector<std::string>& paths, bool parents, const settings& how)
{
    attempts all(paths.size() == 1);
    for (const std::string& path : paths) {
        all.attempt(
            [&] { carry_out("make_folder", path, "", how, [&] { remote.make_folder(path, parents); }); });
    }
    all.finish();
}

void rmdir(session& remote, const std::vector<std::string>& paths, const settings& how)
{
    attempts all(paths.size() == 1);
    for (const std::string& path : paths) {
        all.attempt([&] {
            refuse_top(remote, path);
            remove(remote, path, true, false, how);
        });
    }
    all.finish();
}

} // namespace qrftp::cli

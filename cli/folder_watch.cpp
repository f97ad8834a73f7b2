#include "folder_watch.hpp"

#include "output.hpp"

#include <qrftp/error.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qrftp::cli {

namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t watched = IN_CREATE | IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

[[noreturn]] void throw_local(const fs::path& path, int code, const std::string& reason = {})
{
    throw LocalFileError(path.string(), std::error_code(code, std::generic_category()), reason);
}

bool is_at_or_below(const std::string& path, const std::string& folder)
{
    return path == folder || path.starts_with(folder + '/');
}

/// Gives what is at or below `from` the same place at or below `to`.
void rename_in(std::set<std::string>& paths, const std::string& from, const std::string& to)
{
    std::set<std::string> renamed;
    for (const std::string& path : paths) {
        renamed.insert(is_at_or_below(path, from) ? to + path.substr(from.size()) : path);
    }
    paths = std::move(renamed);
}

} // namespace

folder_watch::folder_watch(fs::path root, leave_out leaves_out)
    : root_(std::move(root)), leaves_out_(std::move(leaves_out)),
      descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (!descriptor_) {
        throw_local(root_, errno);
    }
    add("");
}

/// Each folder is watched before it is looked into: nothing that is made meanwhile is missed.
void folder_watch::add(const std::string& folder)
{
    std::vector<std::string> waiting{folder};
    while (!waiting.empty()) {
        const std::string next = std::move(waiting.back());
        waiting.pop_back();
        if (!add_one(next)) {
            continue;
        }
        std::error_code gone; // A folder that is removed meanwhile tells of it itself.
        for (const fs::directory_entry& each : fs::directory_iterator(root_ / next, gone)) {
            const std::string path = join(next, each.path().filename().string());
            std::error_code none;
            if (fs::is_directory(each.symlink_status(none)) && !is_left_out(path, true)) {
                waiting.push_back(path);
            }
        }
    }
}

bool folder_watch::add_one(const std::string& folder)
{
    const std::uint32_t no_follow = folder.empty() ? 0U : IN_DONT_FOLLOW;
    const int watch = inotify_add_watch(descriptor_.get(), (root_ / folder).c_str(), watched | no_follow);
    if (watch >= 0) {
        paths_[watch] = folder;
        return true;
    }
    if (errno == ENOSPC) {
        throw_local(root_ / folder, errno,
                    "there are more folders than the system watches (sysctl fs.inotify.max_user_watches)");
    }
    if (folder.empty() && errno == ENOENT) {
        throw LocalFileError::missing_folder(root_.string());
    }
    if (folder.empty()) {
        throw_local(root_, errno);
    }
    return false; // It has gone, or may not be read, which the synchronisation tells.
}

void folder_watch::forget(const std::string& folder)
{
    for (auto each = paths_.begin(); each != paths_.end();) {
        if (is_at_or_below(each->second, folder)) {
            inotify_rm_watch(descriptor_.get(), each->first);
            each = paths_.erase(each);
        } else {
            ++each;
        }
    }
}

void folder_watch::rename(const std::string& from, const std::string& to)
{
    for (auto& [watch, path] : paths_) {
        if (is_at_or_below(path, from)) {
            path.replace(0, from.size(), to);
        }
    }
}

bool folder_watch::is_left_out(const std::string& path, bool is_folder) const
{
    return leaves_out_(path, is_folder ? entry_kind::folder : entry_kind::file);
}

bool folder_watch::read(folder_changes& changes)
{
    constexpr std::size_t size = 64UL * 1024;
    alignas(inotify_event) std::array<char, size> buffer{};
    bool any = false;
    for (;;) {
        const ssize_t got = ::read(descriptor_.get(), buffer.data(), buffer.size());
        if (got <= 0) {
            return any;
        }
        any = true;
        for (std::size_t place = 0; place < static_cast<std::size_t>(got);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + place, sizeof event);
            const char* const name = buffer.data() + place + sizeof event;
            handle(event, event.len == 0 ? "" : name, changes);
            place += sizeof event + event.len;
        }
    }
}

void folder_watch::handle(const inotify_event& event, const std::string& name, folder_changes& changes)
{
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        changes.has_lost_some = true;
        return;
    }
    const auto found = paths_.find(event.wd);
    if (found == paths_.end()) {
        return;
    }
    const bool is_root = found->second.empty();
    if (is_root && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0) {
        throw_local(root_, ENOENT, "it was removed or moved while it was watched");
    }
    if ((event.mask & IN_IGNORED) != 0) {
        paths_.erase(found);
    } else if (!name.empty()) {
        on_entry(event, join(found->second, name), changes);
    }
}

void folder_watch::on_entry(const inotify_event& event, const std::string& path, folder_changes& changes)
{
    const bool is_folder = (event.mask & IN_ISDIR) != 0;
    if ((event.mask & IN_MOVED_FROM) != 0) {
        moved_away_[event.cookie] = {path, is_folder};
        return;
    }
    if ((event.mask & IN_MOVED_TO) != 0) {
        if (const auto source = moved_away_.extract(event.cookie)) {
            on_moved(source.mapped(), path, changes);
            return;
        }
    }
    if (is_left_out(path, is_folder)) {
        return;
    }
    if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
        on_new(path, is_folder, (event.mask & IN_MOVED_TO) != 0, changes);
    } else if ((event.mask & IN_DELETE) != 0) {
        on_gone(path, is_folder, changes);
    } else if ((event.mask & IN_CLOSE_WRITE) != 0) {
        changes.written.insert(path);
    } else if (!is_folder) {
        changes.touched.insert(path);
    }
}

/// `is_whole`: nobody is writing it.
void folder_watch::on_new(const std::string& path, bool is_folder, bool is_whole, folder_changes& changes)
{
    if (is_folder) {
        add(path);
        changes.touched.insert(path);
        return;
    }
    struct stat found = {};
    const bool exists = lstat((root_ / path).c_str(), &found) == 0;
    if (exists && S_ISLNK(found.st_mode)) {
        changes.touched.insert(path);
    } else if (is_whole || (exists && found.st_nlink > 1)) { // Others tell when they are closed.
        changes.written.insert(path);
    }
}

void folder_watch::on_gone(const std::string& gone, bool is_folder, folder_changes& changes)
{
    if (is_folder) {
        forget(gone);
    }
    std::erase_if(changes.written, [&](const std::string& each) { return is_at_or_below(each, gone); });
    changes.touched.insert(gone);
}

void folder_watch::on_moved(const pending_move& source, const std::string& to, folder_changes& changes)
{
    const bool comes_from_outside = is_left_out(source.from, source.is_folder);
    if (is_left_out(to, source.is_folder)) {
        if (!comes_from_outside) {
            on_gone(source.from, source.is_folder, changes);
        }
        return;
    }
    if (comes_from_outside) {
        on_new(to, source.is_folder, true, changes);
        return;
    }
    rename(source.from, to);
    rename_in(changes.written, source.from, to);
    rename_in(changes.touched, source.from, to);
    changes.moves.push_back({source.from, to, source.is_folder});
    changes.touched.insert({source.from, to});
}

void folder_watch::settle(folder_changes& changes)
{
    for (const auto& [cookie, source] : std::exchange(moved_away_, {})) {
        if (!is_left_out(source.from, source.is_folder)) {
            on_gone(source.from, source.is_folder, changes);
        }
    }
}

} // namespace qrftp::cli

#include "../remote_path.hpp"
#include "../transfer/local_error.hpp"
#include "local_tree.hpp"
#include "plan.hpp"

#include <qrftp/tree.hpp>
#include <qrftp/walk.hpp>

#include <algorithm>
#include <chrono>
#include <utility>

namespace qrftp {

namespace {

/// What changed before is not written any more.
timestamp limit_of(std::chrono::seconds age)
{
    using std::chrono::seconds;
    return {std::chrono::floor<seconds>(std::chrono::system_clock::now()) - std::max(age, seconds::zero())};
}

/// Asks the server where the listing's time does not tell.
bool is_older(session& server, const std::string& path, std::optional<timestamp> time, const timestamp& limit)
{
    auto older = time ? is_later(limit, *time) : std::nullopt;
    if (!older) {
        time = server.modification_time(path);
        older = time ? is_later(limit, *time) : std::nullopt;
    }
    return older.value_or(false);
}

} // namespace

std::vector<std::string> clean_up(session& server, const std::string& remote_folder, std::chrono::seconds age,
                                  bool dry_run)
{
    const timestamp limit = limit_of(age);
    std::vector<remote_entry> left_over;
    walk(server, server.absolute(remote_folder), [&](remote_entry&& found) {
        if (found.what.kind == entry_kind::file && remote_path::is_part_name(found.what.name)) {
            left_over.push_back(std::move(found));
        }
    });
    std::vector<std::string> removed;
    for (const auto& [path, what] : left_over) {
        if (is_older(server, path, what.modified, limit)) {
            if (!dry_run) {
                server.remove_file(path);
            }
            removed.push_back(path);
        }
    }
    return removed;
}

std::vector<std::filesystem::path> clean_up(const std::filesystem::path& local_folder, std::chrono::seconds age,
                                            bool dry_run)
{
    const timestamp limit = limit_of(age);
    local_tree tree(local_folder);
    std::vector<std::string> folders{""};
    std::vector<std::filesystem::path> removed;
    while (!folders.empty()) {
        const std::string path = std::move(folders.back());
        folders.pop_back();
        const auto folder = tree.folder(path);
        with_local_errors(tree.shown(path), [&] {
            for (const std::string& name : folder->names()) {
                const auto found = folder->status(name);
                if (found && found->type == std::filesystem::file_type::directory) {
                    folders.push_back(remote_path::join(path, name));
                } else if (found && found->type == std::filesystem::file_type::regular &&
                           remote_path::is_part_name(name) && found->modified < limit.time) {
                    if (!dry_run) {
                        folder->remove_file(name);
                    }
                    removed.push_back(tree.shown(remote_path::join(path, name)));
                }
            }
        });
    }
    return removed;
}

} // namespace qrftp

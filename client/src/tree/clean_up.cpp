#include "../remote_path.hpp"
#include "../transfer/local_error.hpp"
#include "local_tree.hpp"

#include <qrftp/tree.hpp>
#include <qrftp/walk.hpp>

#include <chrono>
#include <utility>

namespace qrftp {

namespace {

bool is_left_over(const std::string& name, std::chrono::sys_seconds modified, std::chrono::seconds age)
{
    return remote_path::is_temporary_name(name) && modified + age < std::chrono::system_clock::now();
}

} // namespace

std::vector<std::string> clean_up(session& server, const std::string& remote_folder, std::chrono::seconds age,
                                  bool dry_run)
{
    std::vector<std::string> left_over;
    walk(server, server.absolute(remote_folder), [&](remote_entry&& found) {
        const entry& each = found.what;
        if (each.kind == entry_kind::file && each.modified &&
            is_left_over(each.name, each.modified->time, age)) {
            left_over.push_back(std::move(found.path));
        }
    });
    for (std::size_t i = 0; !dry_run && i < left_over.size(); ++i) {
        server.remove_file(left_over[i]);
    }
    return left_over;
}

std::vector<std::filesystem::path> clean_up(const std::filesystem::path& local_folder, std::chrono::seconds age,
                                            bool dry_run)
{
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
                           is_left_over(name, found->modified, age)) {
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

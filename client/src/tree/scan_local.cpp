#include "../remote_path.hpp"
#include "../transfer/local_error.hpp"
#include "local_tree.hpp"
#include "scan.hpp"
#include "scan_collector.hpp"

#include <algorithm>
#include <memory>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;
namespace files = zorbel::io::common::file;

namespace {

/// A folder on the way from the root, by which one that leads back to itself is known.
struct ancestor {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::shared_ptr<const ancestor> above{};
};

bool is_loop(const files::Status& found, const ancestor* above)
{
    for (; above != nullptr; above = above->above.get()) {
        if (above->device == found.device && above->inode == found.inode) {
            return true;
        }
    }
    return false;
}

tree_node node_of(const files::Status& found)
{
    switch (found.type) {
    case fs::file_type::directory:
        return {.kind = entry_kind::folder};
    case fs::file_type::symlink:
        return {.kind = entry_kind::link};
    case fs::file_type::regular:
        return {.kind = entry_kind::file,
                .size = found.size,
                .modified = timestamp{.time = found.modified},
                .mode = found.mode};
    default:
        return {.kind = entry_kind::other};
    }
}

class local_scanner {
public:
    local_scanner(local_tree& tree, const tree_options& options, tree_role role)
        : tree_(tree), collector_(options, role)
    {
    }

    tree_scan scan()
    {
        waiting_.push_back({});
        while (!waiting_.empty()) {
            const pending folder = std::move(waiting_.back());
            waiting_.pop_back();
            try {
                look_into(folder);
            } catch (const LocalFileError& failure) {
                const bool missing = failure.code() == std::errc::no_such_file_or_directory;
                if (!folder.path.empty()) {
                    collector_.fail(folder.path, std::current_exception());
                } else if (missing) {
                    collector_.root_is_missing(
                        std::make_exception_ptr(LocalFileError::missing_folder(failure.path())));
                } else {
                    throw;
                }
            }
        }
        return collector_.finish();
    }

private:
    struct pending {
        std::string path{};
        std::shared_ptr<const ancestor> above{};
    };

    void look_into(const pending& folder)
    {
        const auto opened = tree_.folder(folder.path);
        std::vector<std::string> names =
            with_local_errors(tree_.shown(folder.path), [&] { return opened->names(); });
        std::sort(names.begin(), names.end(), std::greater<>()); // The last one is looked into first.
        for (const std::string& name : names) {
            const std::string path = remote_path::join(folder.path, name);
            try {
                look_at(*opened, name, path, folder.above);
            } catch (const LocalFileError&) {
                collector_.fail(path, std::current_exception());
            }
        }
    }

    void look_at(const files::Folder& folder, const std::string& name, const std::string& path,
                 const std::shared_ptr<const ancestor>& above)
    {
        const auto status = [&](files::Folder::Links links) {
            return with_local_errors(tree_.shown(path), [&] { return folder.status(name, links); });
        };
        auto found = status(files::Folder::Links::refuse);
        if (found && found->type == fs::file_type::symlink && collector_.follows_links()) {
            const auto led_to = status(files::Folder::Links::follow);
            if (led_to && is_loop(*led_to, above.get())) {
                collector_.pass_over(path);
                return;
            }
            found = led_to ? led_to : found;
        }
        if (!found) {
            return;
        }
        tree_node node = node_of(*found);
        if (node.kind == entry_kind::link && collector_.copies_links()) {
            node.link_target = with_local_errors(tree_.shown(path), [&] { return folder.link_target(name); });
        }
        if (collector_.take(path, node)) {
            waiting_.push_back(
                {path, std::make_shared<const ancestor>(ancestor{found->device, found->inode, above})});
        }
    }

    local_tree& tree_;
    scan_collector collector_;
    std::vector<pending> waiting_;
};

} // namespace

tree_scan scan_local(local_tree& tree, const tree_options& options, tree_role role)
{
    return local_scanner(tree, options, role).scan();
}

} // namespace qrftp

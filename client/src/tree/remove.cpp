#include "remove.hpp"

#include "walk.hpp"

#include <algorithm>
#include <ranges>
#include <utility>
#include <vector>

namespace qrftp {

namespace {

/// Deeper folders than any file system has them are a server's mistake, or worse.
constexpr std::size_t max_depth = 1000;

struct tree_content {
    std::vector<path_change> files{};
    std::vector<std::vector<path_change>>
        folders{}; ///< of one depth each, the root first: none holds another one
};

/// Everything at and below a folder; any failure ends it.
tree_content collect(protocol& server, const std::string& root)
{
    const auto depth_of = [](const std::string& path) {
        return static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'));
    };
    tree_content all{.folders = {{{path_change::kind::remove_folder, root}}}};
    const auto take = [&, depth_of_root = depth_of(root)](remote_entry&& one) {
        if (one.what.kind != entry_kind::folder) {
            all.files.push_back({path_change::kind::remove_file, std::move(one.path)});
            return;
        }
        const std::size_t level = depth_of(one.path) - depth_of_root;
        if (level > max_depth) {
            throw Refused(one.path, {.message = "its folders are nested too deep"});
        }
        all.folders.resize(std::max(all.folders.size(), level + 1));
        all.folders[level].push_back({path_change::kind::remove_folder, std::move(one.path)});
    };
    walk(server, root, root, take, {.on_skipped = [](const std::string& folder, std::string_view) {
             throw IncompleteListing(folder, "it holds a line that cannot be read");
         }});
    return all;
}

void apply_all(protocol& server, const std::vector<path_change>& changes)
{
    server.change(changes, [](std::size_t, const std::exception_ptr& failure) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    });
}

} // namespace

void remove_tree(protocol& server, const std::string& path)
{
    // A link to a folder is told from the folder, whose content would be lost.
    const auto there = server.lstat(path);
    if (!there) {
        throw NotFound(path);
    }
    if (there->kind != entry_kind::folder) {
        throw NotFolder(path);
    }
    const tree_content content = collect(server, path);
    apply_all(server, content.files);
    for (const auto& level : std::views::reverse(content.folders)) {
        apply_all(server, level);
    }
}

} // namespace qrftp

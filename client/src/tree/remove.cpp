#include "remove.hpp"

#include "../remote_path.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace qrftp {

namespace {

/// Deeper folders than any file system has them are a server's mistake, or worse.
constexpr std::size_t max_depth = 1000;

/// Collects everything below a folder; any failure ends it.
class collector final : public folder_queue {
public:
    explicit collector(std::string root)
    {
        depth_of_root_ = depth(root);
        waiting_.push_back(std::move(root));
    }

    std::optional<std::string> next() override
    {
        if (waiting_.empty()) {
            return std::nullopt;
        }
        std::string folder = std::move(waiting_.back());
        waiting_.pop_back();
        folders_.push_back(folder);
        return folder;
    }

    void found(const std::string& folder, entry&& what) override
    {
        std::string path = remote_path::join(folder, what.name);
        if (what.kind != entry_kind::folder) {
            files_.push_back({path_change::kind::remove_file, std::move(path)});
            return;
        }
        if (depth(path) > depth_of_root_ + max_depth) {
            throw Refused(path, {.message = "its folders are nested too deep"});
        }
        waiting_.push_back(std::move(path));
    }

    void skipped(const std::string& folder, std::string_view /*line*/) override
    {
        throw IncompleteListing(folder, "it holds a line that cannot be read");
    }

    void restarted(const std::string& folder) override
    {
        const auto below = [&](const std::string& path) { return remote_path::parent(path) == folder; };
        std::erase_if(waiting_, below);
        std::erase_if(files_, [&](const path_change& change) { return below(change.path); });
    }

    void finished(const std::string& /*folder*/) override {}
    void failed(const std::string& /*folder*/, std::exception_ptr why) override { std::rethrow_exception(why); }

    [[nodiscard]] const std::vector<path_change>& files() const { return files_; }

    /// Folders of one depth each, the deepest first: none of them holds another one.
    [[nodiscard]] std::vector<std::vector<path_change>> folders_by_depth() const
    {
        std::vector<std::vector<path_change>> levels;
        for (const std::string& folder : folders_) {
            const std::size_t level = depth(folder) - depth_of_root_;
            levels.resize(std::max(levels.size(), level + 1));
            levels[level].push_back({path_change::kind::remove_folder, folder});
        }
        std::reverse(levels.begin(), levels.end());
        return levels;
    }

private:
    static std::size_t depth(const std::string& path)
    {
        return static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'));
    }

    std::size_t depth_of_root_ = 0;
    std::vector<std::string> waiting_;
    std::vector<std::string> folders_;
    std::vector<path_change> files_;
};

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
    collector content(path);
    server.list(content);
    apply_all(server, content.files());
    for (const auto& level : content.folders_by_depth()) {
        apply_all(server, level);
    }
}

} // namespace qrftp

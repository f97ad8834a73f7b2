#include "walk.hpp"

#include "../remote_path.hpp"
#include "../session_access.hpp"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace qrftp {

namespace {

class walker final : public folder_queue {
public:
    walker(std::string root, std::string shown, const std::function<void(remote_entry&&)>& on_entry,
           const walk_options& options)
        : root_(std::move(root)), shown_(std::move(shown)), on_entry_(on_entry), options_(options)
    {
        waiting_.push_back({root_, 1});
    }

    std::optional<std::string> next() override
    {
        if (waiting_.empty()) {
            return std::nullopt;
        }
        const place folder = std::move(waiting_.back());
        waiting_.pop_back();
        under_way_[folder.path] = {.depth = folder.depth};
        return folder.path;
    }
    void found(const std::string& folder, entry&& what) override
    {
        under_way_[folder].entries.push_back(std::move(what));
    }
    void skipped(const std::string& folder, std::string_view line) override
    {
        under_way_[folder].skipped.emplace_back(line);
    }
    void restarted(const std::string& folder) override
    {
        under_way_[folder] = {.depth = under_way_[folder].depth};
    }

    void finished(const std::string& folder) override
    {
        content all = std::move(under_way_.extract(folder).mapped());
        std::sort(all.entries.begin(), all.entries.end(),
                  [](const entry& left, const entry& right) { return left.name < right.name; });
        for (const std::string& line : all.skipped) {
            if (options_.on_skipped) {
                options_.on_skipped(shown(folder), line);
            }
        }
        std::vector<place> below;
        for (entry& each : all.entries) {
            const std::string path = remote_path::join(folder, each.name);
            if (each.kind == entry_kind::folder && all.depth < options_.max_depth) {
                below.push_back({path, all.depth + 1});
            }
            on_entry_({shown(path), std::move(each)});
        }
        waiting_.insert(waiting_.end(), below.rbegin(), below.rend());
    }

    void failed(const std::string& folder, std::exception_ptr why) override
    {
        under_way_.erase(folder);
        if (folder == root_ || !options_.on_failure) {
            std::rethrow_exception(why);
        }
        options_.on_failure(shown(folder), why);
    }

private:
    struct place {
        std::string path;
        unsigned depth;
    };
    struct content {
        unsigned depth = 1;
        std::vector<entry> entries{};
        std::vector<std::string> skipped{};
    };

    /// The path as the caller sees it.
    [[nodiscard]] std::string shown(const std::string& path) const
    {
        const std::size_t above = root_ == "/" ? 1 : root_.size() + 1;
        return path.size() < above ? shown_ : remote_path::join(shown_, path.substr(above));
    }

    std::string root_;
    std::string shown_;
    const std::function<void(remote_entry&&)>& on_entry_;
    const walk_options& options_;
    std::vector<place> waiting_;
    std::map<std::string, content> under_way_;
};

} // namespace

void walk(session& server, const std::string& folder, const std::function<void(remote_entry&&)>& on_entry,
          const walk_options& options)
{
    walk(session_access::server(server), server.absolute(folder), folder, on_entry, options);
}

void walk(protocol& server, const std::string& root, const std::string& shown,
          const std::function<void(remote_entry&&)>& on_entry, const walk_options& options)
{
    walker folders(root, shown, on_entry, options);
    server.list(folders);
}

} // namespace qrftp

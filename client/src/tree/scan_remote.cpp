#include "../remote_path.hpp"
#include "scan.hpp"
#include "scan_collector.hpp"

#include <algorithm>
#include <utility>

namespace qrftp {

namespace {

/// Symbolic links that lead to each other would be followed for ever.
constexpr unsigned most_links = 8;

tree_node node_of(const entry& found)
{
    return {found.kind, found.size, found.modified, found.mode, found.link_target};
}

class remote_scanner final : public folder_queue {
public:
    remote_scanner(protocol& server, std::string root, const tree_options& options, tree_role role)
        : server_(server), root_(std::move(root)), collector_(options, role)
    {
        waiting_.push_back({root_, 0});
    }

    tree_scan scan()
    {
        while (!waiting_.empty()) {
            server_.list(*this);
            follow_links(); // No request can be made while another one is under way.
            read_links();
        }
        return collector_.finish();
    }

    std::optional<std::string> next() override
    {
        if (waiting_.empty()) {
            return std::nullopt;
        }
        place folder = std::move(waiting_.back());
        waiting_.pop_back();
        links_above_[folder.path] = folder.links;
        return folder.path;
    }

    void found(const std::string& folder, entry&& what) override
    {
        std::string path = remote_path::join(folder, what.name);
        const unsigned links = links_above_[folder];
        if (what.kind == entry_kind::link && collector_.follows_links()) {
            to_follow_.push_back({std::move(path), links + 1});
        } else if (what.kind == entry_kind::link && collector_.copies_links() && what.link_target.empty()) {
            to_read_.push_back(std::move(path));
        } else if (collector_.take(below_root(path), node_of(what))) {
            waiting_.push_back({std::move(path), links});
        }
    }

    void skipped(const std::string& /*folder*/, std::string_view line) override
    {
        collector_.skip(std::string(line));
    }

    void restarted(const std::string& folder) override
    {
        const auto below = [&](const place& each) { return remote_path::parent(each.path) == folder; };
        std::erase_if(waiting_, below);
        std::erase_if(to_follow_, below);
        std::erase_if(to_read_, [&](const std::string& path) { return remote_path::parent(path) == folder; });
        collector_.forget(below_root(folder));
    }

    void finished(const std::string& folder) override { links_above_.erase(folder); }

    void failed(const std::string& folder, std::exception_ptr why) override
    {
        links_above_.erase(folder);
        if (folder != root_) {
            collector_.fail(below_root(folder), why);
            return;
        }
        try {
            std::rethrow_exception(why);
        } catch (const NotFound&) {
            collector_.root_is_missing(why);
        }
    }

private:
    struct place {
        std::string path;
        unsigned links = 0; ///< how many links lead there
    };

    [[nodiscard]] std::string below_root(const std::string& path) const
    {
        const std::size_t above = root_ == "/" ? 1 : root_.size() + 1;
        return path.size() < above ? "" : path.substr(above);
    }

    void follow_links()
    {
        for (const place& link : std::exchange(to_follow_, {})) {
            const std::string path = below_root(link.path);
            try {
                const auto target = server_.follow(link.path);
                if (!target || link.links > most_links) {
                    collector_.pass_over(path);
                } else if (collector_.take(path, node_of(*target))) {
                    waiting_.push_back(link);
                }
            } catch (const error&) {
                collector_.fail(path, std::current_exception());
            }
        }
    }

    void read_links()
    {
        for (const std::string& link : std::exchange(to_read_, {})) {
            try {
                take_link(below_root(link), server_.read_link(link).value_or(""));
            } catch (const NotSupported&) {
                take_link(below_root(link), "");
            } catch (const error&) {
                collector_.fail(below_root(link), std::current_exception());
            }
        }
    }

    void take_link(const std::string& path, const std::string& target)
    {
        if (target.empty()) {
            collector_.pass_over(path);
        }
        collector_.take(path, {.kind = entry_kind::link, .link_target = target});
    }

    protocol& server_;
    std::string root_;
    scan_collector collector_;
    std::vector<place> waiting_;
    std::vector<place> to_follow_;
    std::vector<std::string> to_read_;            ///< links, of which only the names are known
    std::map<std::string, unsigned> links_above_; ///< of the folders that are being listed
};

} // namespace

tree_scan scan_remote(protocol& server, const std::string& root, const tree_options& options, tree_role role)
{
    return remote_scanner(server, root, options, role).scan();
}

} // namespace qrftp

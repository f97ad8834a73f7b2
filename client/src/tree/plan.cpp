#include "plan.hpp"

#include "../remote_path.hpp"
#include "filter.hpp"

#include <algorithm>
#include <chrono>
#include <ranges>
#include <utility>

namespace qrftp {

using namespace std::chrono_literals;

namespace {

constexpr auto farthest_zone = 14h;

bool is_newer(const std::string& path, std::optional<timestamp> from, std::optional<timestamp> to,
              const exact_time& ask)
{
    if (from && to) {
        if (const auto later = is_later(*from, *to)) {
            return *later;
        }
        // One of the two is local, and exact.
        (from->is_exact() ? to : from) = ask(path);
    }
    return from && to && is_later(*from, *to).value_or(false);
}

/// Some servers tell and make links by absolute names only.
bool leads_to_same(const std::string& path, const tree_node& one, const tree_node& other,
                   const std::string& root)
{
    const std::string folder = remote_path::parent(remote_path::join(root, path));
    return remote_path::absolute(folder, one.link_target) == remote_path::absolute(folder, other.link_target);
}

std::optional<tree_action::reason> why_link(const std::string& path, const tree_node& node, const tree_scan& to,
                                            const std::string& root)
{
    const auto there = to.nodes.find(path);
    if (there == to.nodes.end() || there->second.kind != entry_kind::link) {
        return tree_action::reason::missing;
    }
    const bool is_same = leads_to_same(path, node, there->second, root);
    return is_same ? std::nullopt : std::optional(tree_action::reason::other_target);
}

class planner {
public:
    planner(const tree_scan& from, const tree_scan& to, const plan_options& options, const exact_time& ask,
            const content_test& is_same)
        : from_(from), to_(to), options_(options), ask_(ask), is_same_(is_same)
    {
    }

    tree_plan make()
    {
        using kind = tree_action::kind;
        if (!to_.exists) {
            plan_.actions.push_back({kind::make_folder, tree_action::reason::missing, "", 0});
        }
        for (const auto& [path, node] : from_.nodes) {
            if (!is_below_conflict(path) && !meets_conflict(path, node)) {
                add_copy(path, node);
            }
        }
        plan_.actions.insert(plan_.actions.end(), copies_.begin(), copies_.end());
        plan_.actions.insert(plan_.actions.end(), links_.begin(), links_.end());
        if (options_.remove_extra && from_.is_complete() && to_.is_complete()) {
            add_removals();
        }
        return std::move(plan_);
    }

private:
    [[nodiscard]] bool is_below_conflict(const std::string& path) const
    {
        return std::any_of(plan_.conflicts.begin(), plan_.conflicts.end(),
                           [&](const tree_failure& each) { return path.starts_with(each.path + '/'); });
    }

    bool meets_conflict(const std::string& path, const tree_node& node)
    {
        const auto there = to_.nodes.find(path);
        if (there == to_.nodes.end()) {
            return false;
        }
        const bool folder_wanted = node.kind == entry_kind::folder;
        const bool folder_there = there->second.kind == entry_kind::folder;
        const bool file_wanted =
            node.kind == entry_kind::file || (node.kind == entry_kind::link && options_.copy_links);
        if (file_wanted && folder_there) {
            plan_.conflicts.push_back({path, std::make_exception_ptr(IsFolder(path))});
        } else if (folder_wanted && there->second.kind == entry_kind::link) {
            plan_.conflicts.push_back(
                {path, std::make_exception_ptr(UnsafeName(path, "a symbolic link stands in its place"))});
        } else if (folder_wanted && !folder_there) {
            plan_.conflicts.push_back({path, std::make_exception_ptr(NotFolder(path))});
        } else {
            return false;
        }
        return true;
    }

    void add_copy(const std::string& path, const tree_node& node)
    {
        if (node.kind == entry_kind::folder) {
            if (!to_.nodes.contains(path)) {
                plan_.actions.push_back(
                    {tree_action::kind::make_folder, tree_action::reason::missing, path, 0});
            }
        } else if (node.kind == entry_kind::file) {
            if (const auto why = reason_for(path, node); why && !keeps_newer(path, node)) {
                copies_.push_back({tree_action::kind::copy, *why, path, node.size.value_or(0)});
            }
        } else if (node.kind == entry_kind::link && options_.copy_links && !node.link_target.empty()) {
            const auto why =
                options_.update ? why_link(path, node, to_, options_.remote_root) : tree_action::reason::wanted;
            if (why) {
                links_.push_back({tree_action::kind::make_link, *why, path, 0});
            }
        }
    }

    [[nodiscard]] std::optional<tree_action::reason> reason_for(const std::string& path,
                                                                const tree_node& node) const
    {
        if (!options_.update) {
            return tree_action::reason::wanted;
        }
        const auto why = why_copy(path, node);
        return why || !options_.changed.contains(path) ? why : tree_action::reason::newer;
    }

    [[nodiscard]] std::optional<tree_action::reason> why_copy(const std::string& path,
                                                              const tree_node& node) const
    {
        const auto there = to_.nodes.find(path);
        if (there == to_.nodes.end() || there->second.kind != entry_kind::file) {
            return tree_action::reason::missing;
        }
        if (!node.size || !there->second.size || *node.size != *there->second.size) {
            return tree_action::reason::other_size;
        }
        switch (options_.comparison) {
        case sync_comparison::size:
            return std::nullopt;
        case sync_comparison::checksum:
            return is_same_(path) ? std::nullopt : std::optional(tree_action::reason::other_content);
        case sync_comparison::size_and_time:
            break;
        }
        return is_newer(path, node.modified, there->second.modified, ask_)
                   ? std::optional(tree_action::reason::newer)
                   : std::nullopt;
    }

    /// Whether the destination has a newer file, which the options do not give up.
    bool keeps_newer(const std::string& path, const tree_node& node)
    {
        const auto there = to_.nodes.find(path);
        if (options_.newer == newer_targets::replace || there == to_.nodes.end() ||
            there->second.kind != entry_kind::file ||
            !is_newer(path, there->second.modified, node.modified, ask_)) {
            return false;
        }
        if (options_.newer == newer_targets::refuse) {
            plan_.conflicts.push_back({path, std::make_exception_ptr(AlreadyExists(
                                                 path, {.message = "it is newer than its source"}))});
        }
        return true;
    }

    /// What only the destination has, deepest first. A folder stays where something in it is to be left alone,
    /// and so does all that may be the copy of what has become a link or a special file.
    void add_removals()
    {
        const std::set<std::string> passed_over(from_.passed_over.begin(), from_.passed_over.end());
        for (const auto& [path, node] : std::views::reverse(to_.nodes)) {
            const bool folder = node.kind == entry_kind::folder;
            const bool kept = folder && to_.kept.contains(path);
            if (from_.nodes.contains(path) || kept || is_below_conflict(path) ||
                is_related(passed_over, path)) {
                continue;
            }
            plan_.actions.push_back({folder ? tree_action::kind::remove_folder : tree_action::kind::remove_file,
                                     tree_action::reason::extra, path, node.size.value_or(0)});
        }
    }

    const tree_scan& from_;
    const tree_scan& to_;
    const plan_options& options_;
    const exact_time& ask_;
    const content_test& is_same_;
    tree_plan plan_;
    std::vector<tree_action> copies_;
    std::vector<tree_action> links_;
};

} // namespace

std::optional<bool> is_later(const timestamp& time, const timestamp& than)
{
    const auto zone = [](const timestamp& of) { return of.utc ? 0h : farthest_zone; };
    const auto earliest = [&](const timestamp& of) { return of.time - zone(of); };
    const auto latest = [&](const timestamp& of) {
        const auto span = of.precision == time_precision::day      ? std::chrono::seconds(24h) - 1s
                          : of.precision == time_precision::minute ? std::chrono::seconds(59s)
                                                                   : 0s;
        return of.time + span + zone(of);
    };
    if (earliest(time) > latest(than)) {
        return true;
    }
    if (latest(time) <= earliest(than)) {
        return false;
    }
    return std::nullopt;
}

tree_plan make_plan(const tree_scan& from, const tree_scan& to, const plan_options& options,
                    const exact_time& ask, const content_test& is_same)
{
    return planner(from, to, options, ask, is_same).make();
}

} // namespace qrftp

#include "tree_plan.hpp"

#include "local_file.hpp"
#include "names.hpp"

#include <foundation/core/except/Exception.hpp>

#include <algorithm>
#include <system_error>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;
using foundation::core::except::raise;

namespace {

/// Symbolic links that lead to each other would be followed for ever.
constexpr int most_links = 8;

bool matches_any(const std::vector<std::string>& globs, const std::string& path)
{
    const std::string name = path.substr(path.rfind('/') + 1);
    return std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) {
        return glob_match(glob, glob.find('/') == std::string::npos ? name : path);
    });
}

/// Collects one tree; its derived classes know where from.
class scanner {
public:
    explicit scanner(const tree_options& how) : how_(how) {}
    scanner(const scanner&) = delete;
    scanner& operator=(const scanner&) = delete;
    virtual ~scanner() = default;

    tree_scan scan(bool may_miss)
    {
        try {
            enter("", 0, 0);
        } catch (const error::Missing&) {
            accept_missing(may_miss);
        } catch (const ZORBEL::io::common::file::NoSuchFile&) {
            accept_missing(may_miss);
        }
        if (!how_.include.empty()) {
            drop_empty_folders();
        }
        return std::move(result_);
    }

protected:
    /// Calls `take` for what is in the folder `path`.
    virtual void enter(const std::string& path, int depth, int links) = 0;
    /// What the link at `path` leads to.
    virtual tree_node follow(const std::string& path) = 0;

    void take(const std::string& folder, const std::string& name, tree_node found, int depth, int links)
    {
        const std::string path = folder.empty() ? name : folder + '/' + name;
        guard(path, [&] {
            if (found.kind == entry_kind::link && how_.follow_links) {
                found = follow(path);
                if (++links > most_links) {
                    raise<error::UnsafeName>(path, "too many symbolic links lead to it");
                }
            }
            const bool wanted =
                found.kind != entry_kind::file || how_.include.empty() || matches_any(how_.include, path);
            if (!wanted || matches_any(how_.exclude, path)) {
                keep_above(path);
                return;
            }
            result_.nodes.emplace(path, found);
            if (found.kind == entry_kind::folder) {
                if (depth == names::deepest) {
                    raise<error::UnsafeName>(path, "its folders lie too deep");
                }
                enter(path, depth + 1, links);
            }
        });
    }

    void skip(std::string_view line) { result_.skipped.emplace_back(line); }

private:
    template <class Work>
    void guard(const std::string& path, Work work)
    {
        if (!how_.keep_going) {
            work();
            return;
        }
        try {
            work();
        } catch (const error::Cancelled&) {
            throw;
        } catch (...) {
            result_.failures.push_back({path, std::current_exception()});
        }
    }

    void accept_missing(bool may_miss)
    {
        if (!may_miss) {
            throw;
        }
        result_.there = false;
    }

    void keep_above(std::string path)
    {
        for (std::size_t slash = path.rfind('/'); slash != std::string::npos; slash = path.rfind('/')) {
            path.resize(slash);
            result_.kept.insert(path);
        }
    }

    void drop_empty_folders()
    {
        std::set<std::string> wanted;
        for (const auto& [path, node] : result_.nodes) {
            for (std::size_t slash = path.find('/');
                 node.kind == entry_kind::file && slash != std::string::npos;
                 slash = path.find('/', slash + 1)) {
                wanted.insert(path.substr(0, slash));
            }
        }
        std::erase_if(result_.nodes, [&](const auto& node) {
            return node.second.kind == entry_kind::folder && !wanted.contains(node.first);
        });
    }

    const tree_options& how_;
    tree_scan result_;
};

class local_scanner final : public scanner {
public:
    local_scanner(fs::path root, const tree_options& how) : scanner(how), root_(std::move(root)) {}

private:
    void enter(const std::string& path, int depth, int links) override
    {
        const fs::path folder = path.empty() ? root_ : root_ / path;
        std::error_code code;
        fs::directory_iterator entries(folder, code);
        for (; !code && entries != fs::directory_iterator(); entries.increment(code)) {
            const fs::path& below = entries->path();
            take(path, below.filename().string(), node_of(below, entries->symlink_status(code)), depth, links);
        }
        if (code) {
            raise_folder_error(folder, code);
        }
    }

    tree_node follow(const std::string& path) override
    {
        std::error_code code;
        return node_of(root_ / path, fs::status(root_ / path, code));
    }

    static tree_node node_of(const fs::path& path, fs::file_status status)
    {
        switch (status.type()) {
        case fs::file_type::directory:
            return {.kind = entry_kind::folder};
        case fs::file_type::symlink:
            return {.kind = entry_kind::link};
        case fs::file_type::regular:
            break;
        default:
            return {.kind = entry_kind::other};
        }
        return {.size = zorbel::io::common::file::file_system()->size(path),
                .modified = timestamp{.seconds = modification_time(path)}};
    }

    fs::path root_;
};

class remote_scanner final : public scanner {
public:
    remote_scanner(session& server, std::string root, const tree_options& how)
        : scanner(how), server_(server), root_(std::move(root))
    {
    }

private:
    void enter(const std::string& path, int depth, int links) override
    {
        const listing found = server_.list(names::join(root_, path), list_order::as_sent);
        for (const std::string& line : found.skipped) {
            skip(line);
        }
        for (const entry& each : found.entries) {
            take(path, each.name, {each.kind, each.size.value_or(0), each.modified}, depth, links);
        }
    }

    tree_node follow(const std::string& path) override
    {
        const std::string whole = names::join(root_, path);
        if (server_.is_folder(whole)) {
            return {.kind = entry_kind::folder};
        }
        const auto size = server_.file_size(whole);
        return {.kind = size ? entry_kind::file : entry_kind::link,
                .size = size.value_or(0),
                .modified = size ? server_.modification_time(whole) : std::nullopt};
    }

    session& server_;
    std::string root_;
};

/// Whether `time` is later than `than`, one of which may be coarse; none when that cannot be told.
std::optional<bool> is_later(const timestamp& time, const timestamp& than)
{
    constexpr std::int64_t minute = 60;
    constexpr std::int64_t hour = 60 * minute;
    constexpr std::int64_t farthest_zone = 14 * hour;
    const auto earliest = [&](const timestamp& of) { return of.seconds - (of.utc ? 0 : farthest_zone); };
    const auto latest = [&](const timestamp& of) {
        const std::int64_t span = of.precision == time_precision::day      ? 24 * hour - 1
                                  : of.precision == time_precision::minute ? minute - 1
                                                                           : 0;
        return of.seconds + span + (of.utc ? 0 : farthest_zone);
    };
    if (earliest(time) > latest(than)) {
        return true;
    }
    if (latest(time) <= earliest(than)) {
        return false;
    }
    return std::nullopt;
}

bool is_newer(const std::string& path, std::optional<timestamp> from, std::optional<timestamp> to,
              const exact_time& ask)
{
    if (from && to) {
        if (const auto later = is_later(*from, *to)) {
            return *later;
        }
        // One of the two is local, and exact.
        (is_exact(*from) ? to : from) = ask(path);
    }
    return from && to && is_later(*from, *to).value_or(false);
}

std::optional<tree_action::reason> why_copy(const std::string& path, const tree_node& node, const tree_scan& to,
                                            const exact_time& ask)
{
    const auto there = to.nodes.find(path);
    if (there == to.nodes.end()) {
        return tree_action::reason::missing;
    }
    if (there->second.size != node.size) {
        return tree_action::reason::other_size;
    }
    if (is_newer(path, node.modified, there->second.modified, ask)) {
        return tree_action::reason::newer;
    }
    return std::nullopt;
}

/// What only `to` has, deepest first. A folder stays where something in it is to be left alone.
void add_removals(std::vector<tree_action>& plan, const tree_scan& from, const tree_scan& to)
{
    for (auto node = to.nodes.rbegin(); node != to.nodes.rend(); ++node) {
        const bool folder = node->second.kind == entry_kind::folder;
        if (!from.nodes.contains(node->first) && !(folder && to.kept.contains(node->first))) {
            plan.push_back({folder ? tree_action::kind::remove_folder : tree_action::kind::remove_file,
                            tree_action::reason::extra, node->first, node->second.size});
        }
    }
}

} // namespace

bool is_exact(const timestamp& time)
{
    return time.utc && time.precision == time_precision::second;
}

tree_scan scan_local(const fs::path& root, const tree_options& how, bool may_miss)
{
    return local_scanner(root, how).scan(may_miss);
}

tree_scan scan_remote(session& server, const std::string& root, const tree_options& how, bool may_miss)
{
    return remote_scanner(server, server.absolute(root), how).scan(may_miss);
}

std::vector<tree_action> make_plan(const tree_scan& from, const tree_scan& to, const plan_options& how,
                                   const exact_time& ask)
{
    using kind = tree_action::kind;
    using reason = tree_action::reason;
    std::vector<tree_action> folders;
    std::vector<tree_action> copies;
    if (!to.there) {
        folders.push_back({kind::make_folder, reason::missing, "", 0});
    }
    for (const auto& [path, node] : from.nodes) {
        if (node.kind == entry_kind::folder) {
            const auto there = to.nodes.find(path);
            if (there == to.nodes.end() || there->second.kind != entry_kind::folder) {
                folders.push_back({kind::make_folder, reason::missing, path, 0});
            }
        } else if (node.kind == entry_kind::file) {
            const auto why = how.update ? why_copy(path, node, to, ask) : reason::wanted;
            if (why) {
                copies.push_back({kind::copy, *why, path, node.size});
            }
        }
    }
    folders.insert(folders.end(), copies.begin(), copies.end());
    if (how.remove_extra && from.failures.empty() && from.skipped.empty()) {
        add_removals(folders, from, to);
    }
    return folders;
}

} // namespace qrftp

#include "run.hpp"

#include "../remote_path.hpp"
#include "../replace.hpp"
#include "../session_access.hpp"
#include "../transfer/fetch.hpp"
#include "../transfer/local_error.hpp"
#include "../transfer/send.hpp"
#include "copy_queue.hpp"
#include "make_parents.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

namespace qrftp {

namespace files = zorbel::io::common::file;
namespace fs = std::filesystem;

namespace {

/// 0 for the root.
std::ptrdiff_t depth_of(const tree_action& action)
{
    return action.path.empty() ? 0 : 1 + std::count(action.path.begin(), action.path.end(), '/');
}

path_change::kind change_of(tree_action::kind what)
{
    switch (what) {
    case tree_action::kind::make_folder:
        return path_change::kind::make_folder;
    case tree_action::kind::remove_folder:
        return path_change::kind::remove_folder;
    default:
        return path_change::kind::remove_file;
    }
}

class plan_runner {
public:
    plan_runner(const session& opened, connection_pool& pool, const tree_sides& sides,
                const tree_options& options, const tree_scan& from, tree_outcome& outcome)
        : session_(opened), server_(session_access::server(opened)), pool_(pool), sides_(sides),
          options_(options), from_(from), outcome_(outcome)
    {
    }

    void run(const std::vector<tree_action>& actions)
    {
        using kind = tree_action::kind;
        change_by_depth(select(actions, kind::make_folder), false);
        copy(select(actions, kind::copy));
        make_links(select(actions, kind::make_link));
        change(select(actions, kind::remove_file));
        change_by_depth(select(actions, kind::remove_folder), true);
    }

private:
    [[nodiscard]] bool fetches() const { return sides_.way == direction::fetch; }

    [[nodiscard]] std::string remote(const std::string& path) const
    {
        return path.empty() ? sides_.remote : remote_path::join(sides_.remote, path);
    }

    static std::vector<tree_action> select(const std::vector<tree_action>& actions, tree_action::kind what)
    {
        std::vector<tree_action> chosen;
        std::copy_if(actions.begin(), actions.end(), std::back_inserter(chosen),
                     [&](const tree_action& action) { return action.what == what; });
        return chosen;
    }

    /// Of one depth, no folder holds another one: they can be changed side by side.
    void change_by_depth(std::vector<tree_action> folders, bool deepest_first)
    {
        std::stable_sort(
            folders.begin(), folders.end(), [&](const tree_action& left, const tree_action& right) {
                return deepest_first ? depth_of(left) > depth_of(right) : depth_of(left) < depth_of(right);
            });
        for (auto begin = folders.begin(); begin != folders.end();) {
            const auto end = std::find_if(begin, folders.end(), [&](const tree_action& action) {
                return depth_of(action) != depth_of(*begin);
            });
            change({begin, end});
            begin = end;
        }
    }

    void change(const std::vector<tree_action>& actions)
    {
        if (fetches()) {
            for (const tree_action& action : actions) {
                outcome_.settle(action, [&] { change_local(action); });
            }
            return;
        }
        if (actions.size() == 1 && actions.front().path.empty()) {
            outcome_.settle(actions.front(), [&] { note_made(make_with_parents(server_, sides_.remote), ""); });
            return;
        }
        std::vector<path_change> changes;
        changes.reserve(actions.size());
        for (const tree_action& action : actions) {
            changes.push_back({change_of(action.what), remote(action.path)});
        }
        std::vector<std::size_t> existing;
        server_.change(changes, [&](std::size_t index, const std::exception_ptr& failure) {
            note_made(!failure && changes[index].what == path_change::kind::make_folder, actions[index].path);
            if (is_existing_folder(changes[index], failure)) {
                existing.push_back(index); // No request can be made while others are under way.
            } else {
                outcome_.settle(actions[index], [&] { rethrow(failure); });
            }
        });
        for (const std::size_t index : existing) {
            outcome_.settle(actions[index], [&] { accept_folder(changes[index].path, actions[index].path); });
        }
    }

    void note_made(bool is_made, const std::string& path)
    {
        if (is_made) {
            made_.insert(path);
        }
    }

    /// Whether nothing can have the name there: it is not listed, or its folder was made just now. Listings may
    /// leave out hidden files.
    [[nodiscard]] bool is_new(const tree_action& action) const
    {
        const std::size_t slash = action.path.rfind('/');
        const std::string name = slash == std::string::npos ? action.path : action.path.substr(slash + 1);
        const std::string above = slash == std::string::npos ? "" : action.path.substr(0, slash);
        const bool is_missing = sides_.is_known && action.why == tree_action::reason::missing;
        return made_.contains(above) || (is_missing && !name.starts_with('.'));
    }

    /// After the files, none of which can go through one of them.
    void make_links(const std::vector<tree_action>& links)
    {
        const bool replace = options_.transfer.replace;
        for (const tree_action& action : links) {
            const std::string& target = from_.nodes.at(action.path).link_target;
            outcome_.settle(action, [&] {
                fetches() ? sides_.local.make_link(action.path, target, replace)
                          : replace_link(server_, target, remote(action.path), replace);
            });
        }
    }

    void change_local(const tree_action& action)
    {
        switch (action.what) {
        case tree_action::kind::make_folder:
            action.path.empty() ? sides_.local.make_root() : sides_.local.make_folder(action.path);
            break;
        case tree_action::kind::remove_file:
            sides_.local.remove_file(action.path);
            break;
        case tree_action::kind::remove_folder:
            sides_.local.remove_folder(action.path);
            break;
        case tree_action::kind::copy:
        case tree_action::kind::make_link:
            break;
        }
    }

    static void rethrow(const std::exception_ptr& failure)
    {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

    static bool is_existing_folder(const path_change& change, const std::exception_ptr& failure)
    {
        if (change.what != path_change::kind::make_folder || !failure) {
            return false;
        }
        try {
            std::rethrow_exception(failure);
        } catch (const AlreadyExists&) {
            return true;
        } catch (...) {
            return false;
        }
    }

    /// What is there instead of a folder shows when files go into it; where none does, it is asked for.
    void accept_folder(const std::string& whole, const std::string& path)
    {
        const auto next = from_.nodes.upper_bound(path);
        const bool has_content = next != from_.nodes.end() && next->first.starts_with(path + '/');
        if (!has_content && !server_.is_folder(whole)) {
            throw NotFolder(whole);
        }
    }

    void copy(const std::vector<tree_action>& copies)
    {
        outcome_.expect(copies);
        if (copies.empty()) {
            return;
        }
        if (fetches()) {
            copy_queue<download> queue(
                copies, options_, session_access::options(session_), pool_.stop_token(), outcome_,
                [&](std::size_t index, const transfer_options& options, meter& progress) {
                    return make_download(copies[index], options, progress);
                });
            pool_.run(server_, [&](protocol& connection, unsigned job) {
                typename copy_queue<download>::view mine(queue, job);
                connection.fetch(mine);
            });
        } else {
            copy_queue<upload> queue(copies, options_, session_access::options(session_), pool_.stop_token(),
                                     outcome_,
                                     [&](std::size_t index, const transfer_options& options, meter& progress) {
                                         return make_upload(copies[index], options, progress);
                                     });
            pool_.run(server_, [&](protocol& connection, unsigned job) {
                typename copy_queue<upload>::view mine(queue, job);
                connection.send(mine);
            });
        }
    }

    std::unique_ptr<download> make_download(const tree_action& action, transfer_options options,
                                            meter& progress)
    {
        const auto found = from_.nodes.find(action.path);
        file_facts known;
        if (found != from_.nodes.end()) {
            const tree_node& node = found->second;
            options.listed_size = node.size;
            known.mode = node.mode;
            if (node.modified && node.modified->is_exact()) {
                known.modified = node.modified->time;
            }
        }
        return std::make_unique<file_download>(session_.location().server(), remote(action.path),
                                               sides_.local.place(action.path), options, progress, known, 1,
                                               true);
    }

    std::unique_ptr<upload> make_upload(const tree_action& action, const transfer_options& options,
                                        meter& progress)
    {
        const local_place source = sides_.local.place(action.path);
        auto file = with_local_errors(source.shown, [&] {
            using files::Folder;
            return source.folder->open_file(source.name, Folder::Open::read,
                                            options_.follow_links ? Folder::Links::follow
                                                                  : Folder::Links::refuse);
        });
        return std::make_unique<file_upload>(std::move(file), source.shown, remote(action.path), options,
                                             progress, 1, target_facts{is_new(action), true});
    }

    const session& session_;
    protocol& server_;
    connection_pool& pool_;
    const tree_sides& sides_;
    const tree_options& options_;
    const tree_scan& from_;
    tree_outcome& outcome_;
    std::set<std::string> made_; ///< remote folders that were not there
};

} // namespace

void run_plan(const session& opened, connection_pool& pool, const tree_sides& sides,
              const tree_options& options, const tree_scan& from, const std::vector<tree_action>& actions,
              tree_outcome& outcome)
{
    plan_runner(opened, pool, sides, options, from, outcome).run(actions);
}

} // namespace qrftp

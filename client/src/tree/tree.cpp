#include "../remote_path.hpp"
#include "../session_access.hpp"
#include "../transfer/connection_pool.hpp"
#include "../transfer/fetch.hpp"
#include "../transfer/local_checksum.hpp"
#include "../transfer/local_error.hpp"
#include "../transfer/send.hpp"
#include "../transfer/verify.hpp"
#include "copy_queue.hpp"
#include "plan.hpp"
#include "run.hpp"

#include <qrftp/tree.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

namespace qrftp {

namespace {

/// How many connections a tree uses besides the first one.
unsigned further_connections(const protocol& server, const tree_options& options)
{
    return options.dry_run ? 0 : (options.jobs == 0 ? server.best_connections() : options.jobs) - 1;
}

/// What stands between a wrong turn and lost files.
void check_removals(const tree_plan& plan, const tree_scan& from, const tree_scan& to,
                    const std::string& source, const std::string& destination, const sync_options& options)
{
    if (!options.remove_extra) {
        return;
    }
    if (from.nodes.empty() && from.kept.empty() && !to.nodes.empty() && !options.force) {
        throw EmptySource(source);
    }
    const auto removals = static_cast<std::size_t>(
        std::count_if(plan.actions.begin(), plan.actions.end(), [](const tree_action& action) {
            return action.what == tree_action::kind::remove_file ||
                   action.what == tree_action::kind::remove_folder;
        }));
    if (options.max_removals && removals > *options.max_removals) {
        throw TooManyRemovals(destination, fmt::format("{} removals would be needed", removals));
    }
}

/// What the scans and the plan met, in the result; throws the first failure where failures are not collected.
void report_scans(tree_outcome& outcome, tree_scan& from, tree_scan& to, tree_plan& plan)
{
    for (auto* failures : {&from.failures, &to.failures, &plan.conflicts}) {
        for (const tree_failure& each : *failures) {
            outcome.failed(each.path, each.error);
        }
    }
    for (auto* skipped : {&from.skipped, &to.skipped}) {
        auto& all = outcome.result().skipped;
        all.insert(all.end(), skipped->begin(), skipped->end());
    }
    outcome.result().passed_over = from.passed_over;
}

/// Compares the content of two files by their checksums.
bool is_same_content(protocol& server, const tree_sides& sides, const std::string& path)
{
    const checksum there = server.ask_checksum(remote_path::join(sides.remote, path));
    const local_place here = sides.local.place(path);
    return there == with_local_errors(here.shown, [&] {
               using zorbel::io::common::file::Folder;
               return checksum_of(*here.folder->open_file(here.name, Folder::Open::read), there.algorithm);
           });
}

/// Names that the protocol cannot carry are known before anything is sent.
void check_names(const protocol& server, const tree_sides& sides, tree_plan& plan)
{
    if (sides.way == direction::fetch) {
        return;
    }
    std::erase_if(plan.actions, [&](const tree_action& action) {
        try {
            server.check_name(remote_path::join(sides.remote, action.path));
            return false;
        } catch (const InvalidName&) {
            plan.conflicts.push_back({action.path, std::current_exception()});
            return true;
        }
    });
}

tree_result bring_over(session& opened, const tree_sides& sides, sync_options options, bool update)
{
    // In place there is nothing but older files, which are not to be completed.
    options.transfer.resume = options.transfer.resume && !options.transfer.in_place;
    protocol& server = session_access::server(opened);
    if (options.transfer.verify || options.comparison == sync_comparison::checksum) {
        require_checksums(server, opened.location().server());
    }
    connection_pool pool(opened, further_connections(server, options));
    const bool fetching = sides.way == direction::fetch;
    const auto scan_side = [&](bool remote_side, tree_role role) {
        return remote_side ? scan_remote(server, sides.remote, options, role)
                           : scan_local(sides.local, options, role);
    };
    tree_scan from = scan_side(fetching, tree_role::source);
    tree_scan to{.exists = false};
    if (update) {
        to = scan_side(!fetching, tree_role::destination);
    }
    const plan_options wanted{.update = update,
                              .remove_extra = options.remove_extra,
                              .comparison = options.comparison,
                              .newer = options.newer,
                              .copy_links = options.copy_links,
                              .remote_root = sides.remote,
                              .changed = {options.changed.begin(), options.changed.end()}};
    tree_plan plan = make_plan(
        from, to, wanted,
        [&](const std::string& path) {
            return server.modification_time(remote_path::join(sides.remote, path));
        },
        [&](const std::string& path) { return is_same_content(server, sides, path); });
    check_names(server, sides, plan);
    const std::string local = sides.local.shown("").string();
    check_removals(plan, from, to, fetching ? sides.remote : local, fetching ? local : sides.remote, options);
    tree_outcome outcome(options);
    report_scans(outcome, from, to, plan);
    tree_sides known = sides;
    known.is_known = update && to.is_complete();
    to = {};
    if (options.dry_run) {
        std::for_each(plan.actions.begin(), plan.actions.end(),
                      [&](const tree_action& action) { outcome.done(action); });
    } else {
        run_plan(opened, pool, known, options, from, plan.actions, outcome);
    }
    return outcome.take();
}

sync_options as_sync(const tree_options& options)
{
    sync_options result;
    static_cast<tree_options&>(result) = options;
    return result;
}

std::vector<tree_action> copies_of(const std::vector<file_pair>& files, direction way)
{
    std::vector<tree_action> copies;
    std::set<std::string> targets;
    for (const file_pair& each : files) {
        const std::string target =
            way == direction::fetch ? each.local.lexically_normal().string() : each.remote;
        if (!targets.insert(target).second) {
            throw InvalidOption(target, "two files would get this name");
        }
        copies.push_back({.path = way == direction::fetch ? each.remote : each.local.string()});
    }
    return copies;
}

/// The names of the files on the server are made absolute on the threads of all connections. So that none of
/// them has to ask the server for the working folder, this one does.
void find_working_folder(const session& opened, const std::vector<file_pair>& files)
{
    if (std::any_of(files.begin(), files.end(),
                    [](const auto& each) { return !each.remote.starts_with('/'); })) {
        static_cast<void>(opened.working_folder());
    }
}

/// Copies files one by one through a queue that all connections take from.
template <class File>
tree_result copy_files(session& opened, const std::vector<file_pair>& files, const tree_options& options,
                       direction way, void (protocol::*copy)(batch<File>&),
                       typename copy_queue<File>::maker make)
{
    protocol& server = session_access::server(opened);
    const std::vector<tree_action> copies = copies_of(files, way);
    verification_of(server, opened.location().server(), options.transfer);
    tree_outcome outcome(options);
    if (options.dry_run) {
        std::for_each(copies.begin(), copies.end(), [&](const tree_action& action) { outcome.done(action); });
        return outcome.take();
    }
    find_working_folder(opened, files);
    const auto most = static_cast<unsigned>(std::max<std::size_t>(copies.size(), 1) - 1);
    connection_pool pool(opened, std::min(further_connections(server, options), most));
    outcome.expect(copies);
    copy_queue<File> queue(copies, options, session_access::options(opened), pool.stop_token(), outcome,
                           std::move(make));
    pool.run(server, [&](protocol& connection, unsigned job) {
        typename copy_queue<File>::view mine(queue, job); // NOLINT(misc-const-correctness): `copy` changes it
        (connection.*copy)(mine);
    });
    return outcome.take();
}

} // namespace

tree_result fetch_tree(session& from, const std::string& remote_folder,
                       const std::filesystem::path& local_folder, const tree_options& options)
{
    local_tree local(local_folder, false, options.transfer.follow_target);
    return bring_over(from, {local, from.absolute(remote_folder), direction::fetch}, as_sync(options), false);
}

tree_result send_tree(session& to, const std::filesystem::path& local_folder, const std::string& remote_folder,
                      const tree_options& options)
{
    local_tree local(local_folder, options.follow_links);
    return bring_over(to, {local, to.absolute(remote_folder), direction::send}, as_sync(options), false);
}

tree_result synchronise(session& with, const std::filesystem::path& local_folder,
                        const std::string& remote_folder, direction way, const sync_options& options)
{
    local_tree local(local_folder, options.follow_links && way == direction::send);
    return bring_over(with, {local, with.absolute(remote_folder), way}, options, true);
}

tree_result fetch_files(session& from, const std::vector<file_pair>& files, const tree_options& options)
{
    return copy_files<download>(from, files, options, direction::fetch, &protocol::fetch,
                                [&](std::size_t index, const transfer_options& each, meter& progress) {
                                    return std::make_unique<file_download>(
                                        from.location().server(), from.absolute(files[index].remote),
                                        find_local_place(files[index].local, each.follow_target), each,
                                        progress);
                                });
}

tree_result send_files(session& to, const std::vector<file_pair>& files, const tree_options& options)
{
    return copy_files<upload>(to, files, options, direction::send, &protocol::send,
                              [&](std::size_t index, const transfer_options& each, meter& progress) {
                                  return std::make_unique<file_upload>(
                                      open_source(files[index].local), files[index].local,
                                      to.absolute(files[index].remote), each, progress);
                              });
}

} // namespace qrftp

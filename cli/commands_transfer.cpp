#include "commands.hpp"
#include "interrupt.hpp"
#include "output.hpp"
#include "planned_targets.hpp"
#include "remote_glob.hpp"
#include "transfer_report.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace qrftp::cli {

namespace fs = std::filesystem;

namespace {

/// Stands for standard input and output.
constexpr std::string_view dash = "-";

/// One of the things that `get` or `put` were told to copy.
struct copy {
    std::string remote;
    fs::path local;
    bool is_folder = false;
    std::optional<std::uint64_t> size{}; ///< where it is known
    bool is_found = false;               ///< by a pattern: its name is the server's choice
};

bool prints_files(const settings& options)
{
    return options.json || options.verbose > 0 || options.dry_run;
}

/// Something remote to fetch, with what is known of it.
struct remote_source {
    std::string path;
    std::optional<entry> what{};
};

std::vector<remote_source> find_sources(session& remote, const std::vector<std::string>& patterns, batch& all)
{
    std::vector<remote_source> found;
    for (const std::string& pattern : patterns) {
        if (!has_magic(pattern)) {
            found.push_back({or_here(glob_unescape(pattern))});
            continue;
        }
        all.attempt([&] {
            for (remote_entry& one : expand_glob(remote, pattern)) {
                found.push_back({std::move(one.path), std::move(one.what)});
            }
        });
    }
    return found;
}

/// The local name of the copy of what is called `name`.
fs::path local_target(const std::string& target, const std::string& name)
{
    if (!target.empty() && !target.ends_with('/') && !fs::is_directory(target)) {
        return target;
    }
    if (name.empty()) {
        throw usage_error("The root folder has no name that its copy could take: name a local folder.");
    }
    return fs::path(target) / name;
}

/// Whether `one` is a folder, or a link to one; false where it need not be known.
bool is_folder(session& remote, const remote_source& one, bool recursive)
{
    if (one.what && one.what->kind != entry_kind::link) {
        return one.what->kind == entry_kind::folder;
    }
    return (one.what || recursive) && remote.is_folder(one.path);
}

/// What the sources become. Folders are left out, with a note, unless they are wanted.
std::vector<copy> plan_get(session& remote, const std::vector<remote_source>& sources,
                           const transfer_arguments& arguments, const settings& options)
{
    std::vector<copy> plan;
    planned_targets targets;
    for (const remote_source& one : sources) {
        const bool folder = is_folder(remote, one, arguments.recursive);
        if (folder && !arguments.recursive) {
            note(options,
                 fmt::format("\"{}\" is a folder and was not fetched; -r fetches folders.", escape(one.path)));
            continue;
        }
        fs::path local = local_target(arguments.target, last_segment(remote.absolute(one.path)));
        const std::string key = fs::absolute(local).lexically_normal().string();
        targets.add(key, one.path);
        plan.push_back({one.path, std::move(local), folder, one.what ? one.what->size : std::nullopt,
                        one.what.has_value()});
    }
    if (plan.empty() && !sources.empty()) {
        throw needs_recursion("Only folders were found, and nothing was fetched; -r fetches folders.");
    }
    return plan;
}

/// "." and the like have the name of the folder that they stand for.
std::string local_name(const fs::path& source)
{
    const std::string name = last_segment(source.string());
    return name.empty() || name == "." || name == ".." ? fs::weakly_canonical(source).filename().string()
                                                       : name;
}

std::vector<copy> plan_put(const transfer_arguments& arguments, bool into)
{
    std::vector<copy> plan;
    planned_targets targets;
    for (const std::string& source : arguments.sources) {
        if (source.empty()) {
            throw usage_error("The name of a local file is empty.");
        }
        std::string path = into ? join(arguments.target, local_name(source)) : arguments.target;
        targets.add(path, source);
        plan.push_back({std::move(path), source, fs::is_directory(source)});
    }
    return plan;
}

/// From where to where a copy goes; of a folder, what is at `below` in it.
copy_ends ends_of(const copy& one, direction way, const std::string& below = {})
{
    const std::string remote = below.empty() ? one.remote : join(one.remote, below);
    const std::string local = (below.empty() ? one.local : one.local / below).string();
    return way == direction::fetch ? copy_ends{remote, local} : copy_ends{local, remote};
}

/// 0 for what is no ordinary file.
std::uint64_t local_size(const fs::path& file)
{
    return file != dash && fs::is_regular_file(file) ? fs::file_size(file) : 0;
}

/// Fills the beginning of the buffer from standard input; 0 at its end.
std::size_t read_input(std::span<char> buffer)
{
    if (!wait_readable(STDIN_FILENO, std::chrono::hours(24))) {
        throw Cancelled("standard input");
    }
    const ssize_t got = read(STDIN_FILENO, buffer.data(), buffer.size());
    if (got < 0) {
        throw LocalFileError("standard input", std::error_code(errno, std::generic_category()));
    }
    return static_cast<std::size_t>(got);
}

void send_one(session& remote, const copy& one, const transfer_options& options)
{
    one.local == dash ? remote.send(read_input, one.remote, options)
                      : remote.send(one.local, one.remote, options);
}

/// What a copy of a single file is printed as.
tree_action action_of(session& remote, const copy& one, direction way, bool with_size)
{
    const bool fetches = way == direction::fetch;
    tree_action action{.path = fetches ? one.remote : one.local.string()};
    if (with_size) {
        action.size = one.size  ? *one.size
                      : fetches ? remote.stat(one.remote).size.value_or(0)
                                : local_size(one.local);
    }
    return action;
}

/// A single file, whose failure is the command's.
void copy_file(session& remote, const copy& one, const transfer_arguments& arguments, direction way,
               transfer_report& report)
{
    tree_action action = action_of(remote, one, way, report.prints_sizes());
    transfer_options options = report.watch(last_segment(one.remote), arguments.tree.transfer);
    if (way == direction::send && !fs::is_regular_file(one.local)) {
        options.on_progress = [&action, show = options.on_progress](const progress& now) {
            action.size = now.bytes; // Of standard input and pipes, only the end tells.
            return show(now);
        };
    }
    options.follow_target = !one.is_found;
    if (report.is_dry_run()) {
        report.print_action(action, ends_of(one, way));
        return;
    }
    try {
        way == direction::fetch ? remote.fetch(one.remote, one.local, options) : send_one(remote, one, options);
    } catch (const error& failure) {
        const auto* const here = dynamic_cast<const LocalFileError*>(&failure);
        const bool is_here = here != nullptr && here->code() == std::errc::is_a_directory;
        if (way == direction::fetch &&
            (failure.cause() == error_cause::is_folder || (is_here && remote.is_folder(one.remote)))) {
            throw needs_recursion(fmt::format("\"{}\" is a folder on the server; -r fetches it.", one.remote));
        }
        throw;
    }
    report.print_action(action, ends_of(one, way));
}

/// Several files of one origin, as many at a time as the protocol carries; those that fail do not keep the
/// others back.
void copy_files(session& remote, const std::vector<copy>& files, const transfer_arguments& arguments,
                direction way, transfer_report& report)
{
    std::vector<file_pair> pairs;
    std::map<std::string, std::uint64_t> sizes;
    std::map<std::string, copy_ends> ends;
    for (const copy& one : files) {
        pairs.push_back({one.remote, one.local});
        const tree_action action = action_of(remote, one, way, report.prints_sizes());
        sizes.emplace(action.path, action.size);
        ends.emplace(action.path, ends_of(one, way));
    }
    tree_options options = report.watch(arguments.tree);
    options.keep_going = true;
    options.transfer.follow_target = !files.front().is_found;
    options.on_action = [&](tree_action action) {
        action.size = sizes[action.path];
        report.print_action(action, ends[action.path]);
    };
    report.add(way == direction::fetch ? fetch_files(remote, pairs, options)
                                       : send_files(remote, pairs, options));
}

void copy_folder(session& remote, const copy& one, const transfer_arguments& arguments, direction way,
                 transfer_report& report)
{
    if (!arguments.recursive) {
        report.attempt([&] {
            throw needs_recursion(
                fmt::format("\"{}\" is a folder; -r sends it with all that is in it.", one.local.string()));
        });
        return;
    }
    tree_options options = report.watch(arguments.tree);
    options.transfer.follow_target = !one.is_found;
    options.on_action = [&](const tree_action& action) {
        const bool is_copy = action.what == tree_action::kind::copy;
        report.print_action(action, is_copy ? ends_of(one, way, action.path) : copy_ends{});
    };
    report.set_target(way == direction::fetch ? one.local.string() : one.remote);
    report.attempt_tree(options, way == direction::fetch ? remote.absolute(one.remote) : one.local.string(),
                        [&] {
                            return way == direction::fetch ? fetch_tree(remote, one.remote, one.local, options)
                                                           : send_tree(remote, one.local, one.remote, options);
                        });
}

/// Ends the report; says how the copies were compared.
void finish(session& remote, const transfer_options& transfer, const settings& options, transfer_report& report)
{
    report.finish();
    if (transfer.verify && !options.dry_run) {
        const checksum_method method = remote.checksum_support();
        note(options,
             fmt::format("Verified by the server's {} ({}).", method.command, name_of(method.algorithm)));
    }
}

/// The content of files, one after the other, on standard output.
void print_files(session& remote, const std::vector<remote_source>& sources,
                 const transfer_arguments& arguments, const settings& settings, transfer_report& report)
{
    for (const remote_source& one : sources) {
        const transfer_options options = report.watch(last_segment(one.path), arguments.tree.transfer);
        report.attempt([&] {
            remote.fetch(
                one.path,
                [](std::string_view piece) {
                    print(piece);
                    return true;
                },
                options);
            flush_output();
        });
    }
    finish(remote, arguments.tree.transfer, settings, report);
}

void carry_out(session& remote, const std::vector<copy>& plan, const transfer_arguments& arguments,
               direction way, transfer_report& report)
{
    for (const bool is_found : {false, true}) {
        std::vector<copy> files;
        std::ranges::copy_if(plan, std::back_inserter(files),
                             [&](const copy& one) { return !one.is_folder && one.is_found == is_found; });
        if (files.size() == 1) {
            report.attempt([&] { copy_file(remote, files.front(), arguments, way, report); });
        } else if (!files.empty()) {
            report.attempt([&] { copy_files(remote, files, arguments, way, report); });
        }
    }
    for (const copy& one : plan) {
        if (one.is_folder) {
            copy_folder(remote, one, arguments, way, report);
        }
    }
}

} // namespace

void get(session& remote, const transfer_arguments& arguments, const settings& options)
{
    batch finding(arguments.sources.size() == 1);
    const std::vector<remote_source> sources = find_sources(remote, arguments.sources, finding);
    if (arguments.target == dash) {
        transfer_report report(options, sources.size() == 1 && arguments.sources.size() == 1, false);
        print_files(remote, sources, arguments, options, report);
        finding.finish();
        return;
    }
    if (sources.size() > 1 && !arguments.target.empty() && !fs::is_directory(arguments.target)) {
        throw usage_error(fmt::format("Several files cannot all become \"{}\": name a folder that exists.",
                                      escape(arguments.target)));
    }
    const std::vector<copy> plan = plan_get(remote, sources, arguments, options);
    transfer_report report(options, sources.size() == 1 && arguments.sources.size() == 1,
                           prints_files(options));
    carry_out(remote, plan, arguments, direction::fetch, report);
    finish(remote, arguments.tree.transfer, options, report);
    finding.finish();
}

void put(session& remote, const transfer_arguments& arguments, const settings& options)
{
    const bool several = arguments.sources.size() > 1;
    const bool into =
        arguments.target.empty() || arguments.target.ends_with('/') || remote.is_folder(arguments.target);
    if (several && !into) {
        throw usage_error(fmt::format("Several files cannot all become \"{}\": name a remote folder.",
                                      escape(arguments.target)));
    }
    if (std::ranges::find(arguments.sources, dash) != arguments.sources.end() && (several || into)) {
        throw usage_error("Standard input (-) becomes one file: name it.");
    }
    const std::vector<copy> plan = plan_put(arguments, into);
    transfer_report report(options, !several, prints_files(options));
    carry_out(remote, plan, arguments, direction::send, report);
    finish(remote, arguments.tree.transfer, options, report);
}

void sync(session& remote, const sync_arguments& arguments, const settings& options)
{
    transfer_report report(options, true, !options.quiet || options.json || options.dry_run);
    const sync_options watched = report.watch(arguments.options);
    report.set_target(arguments.way == direction::fetch ? arguments.local : or_here(arguments.remote));
    report.attempt_tree(
        watched,
        arguments.way == direction::fetch ? remote.absolute(or_here(arguments.remote)) : arguments.local, [&] {
            return synchronise(remote, arguments.local, or_here(arguments.remote), arguments.way, watched);
        });
    report.attempt([&] {
        if (arguments.clean_up) {
            const std::chrono::hours age(24);
            const auto print_removed = [&](const auto& paths) {
                for (const auto& path : paths) {
                    report.print_action({tree_action::kind::remove_file, tree_action::reason::extra,
                                         fs::path(path).string(), 0});
                }
            };
            print_removed(clean_up(remote, or_here(arguments.remote), age, options.dry_run));
            print_removed(clean_up(arguments.local, age, options.dry_run));
        }
    });
    finish(remote, watched.transfer, options, report);
}

} // namespace qrftp::cli

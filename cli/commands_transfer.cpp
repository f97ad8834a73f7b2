#include "commands.hpp"
#include "output.hpp"
#include "remote_glob.hpp"
#include "transfer_report.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <map>
#include <optional>
#include <system_error>
#include <utility>

namespace qrftp::cli {

namespace fs = std::filesystem;

namespace {

/// One of the things that `get` or `put` were told to copy.
struct copy {
    std::string remote;
    fs::path local;
    bool is_folder = false;
};

bool prints_files(const settings& options)
{
    return options.json || options.verbose > 0 || options.dry_run;
}

/// Refuses two sources that would become one file: the first copy would be lost.
void refuse_same_targets(const std::map<std::string, std::string>& sources_by_target, const std::string& target,
                         const std::string& source)
{
    if (const auto other = sources_by_target.find(target); other != sources_by_target.end()) {
        throw usage_error(fmt::format("\"{}\" and \"{}\" would both become \"{}\"; nothing was copied.",
                                      escape(other->second), escape(source), escape(target)));
    }
}

/// Something remote to fetch, and its kind where that is known.
struct remote_source {
    std::string path;
    std::optional<entry_kind> kind{};
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
                found.push_back({std::move(one.path), one.what.kind});
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

/// What the sources become. Folders are left out, with a note, unless they are wanted.
std::vector<copy> plan_get(session& remote, const std::vector<remote_source>& sources,
                           const transfer_arguments& arguments, const settings& options)
{
    std::vector<copy> plan;
    std::map<std::string, std::string> sources_by_target;
    for (const remote_source& one : sources) {
        const bool may_be_folder = one.kind ? *one.kind != entry_kind::file : arguments.recursive;
        const bool is_folder = may_be_folder && (one.kind == entry_kind::folder || remote.is_folder(one.path));
        if (is_folder && !arguments.recursive) {
            note(options,
                 fmt::format("\"{}\" is a folder and was not fetched; -r fetches folders.", escape(one.path)));
            continue;
        }
        fs::path local = local_target(arguments.target, last_segment(remote.absolute(one.path)));
        const std::string key = fs::absolute(local).lexically_normal().string();
        refuse_same_targets(sources_by_target, key, one.path);
        sources_by_target.emplace(key, one.path);
        plan.push_back({one.path, std::move(local), is_folder});
    }
    return plan;
}

void fetch(session& remote, const copy& one, const transfer_arguments& arguments, transfer_report& report)
{
    if (one.is_folder) {
        report.add(fetch_tree(remote, one.remote, one.local, report.watch(arguments.tree)));
        return;
    }
    tree_action action{.path = one.remote};
    if (report.prints_sizes()) {
        action.size = remote.stat(one.remote).size.value_or(0);
    }
    if (!report.is_dry_run()) {
        remote.fetch(one.remote, one.local, report.watch(last_segment(one.remote), arguments.tree.transfer));
    }
    report.print_action(action);
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
    std::map<std::string, std::string> sources_by_target;
    for (const std::string& source : arguments.sources) {
        std::string path = into ? join(arguments.target, local_name(source)) : arguments.target;
        refuse_same_targets(sources_by_target, path, source);
        sources_by_target.emplace(path, source);
        plan.push_back({std::move(path), source, fs::is_directory(source)});
    }
    return plan;
}

void send(session& remote, const copy& one, const transfer_arguments& arguments, transfer_report& report)
{
    if (one.is_folder) {
        if (!arguments.recursive) {
            throw LocalFileError(one.local.string(), std::make_error_code(std::errc::is_a_directory),
                                 "it is a folder; -r sends folders");
        }
        report.add(send_tree(remote, one.local, one.remote, report.watch(arguments.tree)));
        return;
    }
    tree_action action{.path = one.remote};
    if (report.prints_sizes()) {
        action.size = fs::file_size(one.local);
    }
    if (!report.is_dry_run()) {
        remote.send(one.local, one.remote, report.watch(last_segment(one.remote), arguments.tree.transfer));
    }
    report.print_action(action);
}

} // namespace

void get(session& remote, const transfer_arguments& arguments, const settings& options)
{
    batch finding(arguments.sources.size() == 1);
    const std::vector<remote_source> sources = find_sources(remote, arguments.sources, finding);
    if (sources.size() > 1 && !arguments.target.empty() && !fs::is_directory(arguments.target)) {
        throw usage_error(fmt::format("Several files cannot all become \"{}\": name a folder that exists.",
                                      escape(arguments.target)));
    }
    const std::vector<copy> plan = plan_get(remote, sources, arguments, options);
    transfer_report report(options, sources.size() == 1 && arguments.sources.size() == 1,
                           prints_files(options));
    for (const copy& one : plan) {
        report.attempt([&] { fetch(remote, one, arguments, report); });
    }
    report.finish();
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
    const std::vector<copy> plan = plan_put(arguments, into);
    transfer_report report(options, !several, prints_files(options));
    for (const copy& one : plan) {
        report.attempt([&] { send(remote, one, arguments, report); });
    }
    report.finish();
}

void sync(session& remote, const sync_arguments& arguments, const settings& options)
{
    transfer_report report(options, true, !options.quiet || options.json || options.dry_run);
    report.attempt([&] {
        report.add(synchronise(remote, arguments.local, or_here(arguments.remote), arguments.way,
                               report.watch(arguments.options)));
    });
    report.finish();
}

} // namespace qrftp::cli

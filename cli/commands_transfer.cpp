#include "commands.hpp"
#include "exit_status.hpp"
#include "expand.hpp"
#include "output.hpp"
#include "progress_display.hpp"

#include <fl/i18n/ustring_to_utf8.hpp>

#include <exception>
#include <system_error>
#include <utility>

namespace qrftp::cli {

namespace fs = std::filesystem;
using foundation::core::except::raise;
using local_error = ZORBEL::io::common::file::FileError;

namespace {

/// One get, put or sync: what it shows, and what has failed.
class transfer {
public:
    transfer(session& remote, const settings& how, bool alone, bool tells)
        : remote_(remote), how_(how), display_(how.progress), all_(alone), tells_(tells)
    {
    }

    session& remote() { return remote_; }
    const settings& how() const { return how_; }

    void attempt(const std::function<void()>& act)
    {
        all_.attempt([&] {
            try {
                act();
            } catch (...) {
                display_.erase(); // What is reported now begins at the left.
                throw;
            }
        });
    }

    void finish()
    {
        display_.erase();
        flush_output();
        all_.finish();
    }

    template <class Options>
    Options watched(Options options)
    {
        options.dry_run = how_.dry_run;
        options.on_action = [this](const tree_action& action) { tell(action); };
        options.on_progress = [this](const tree_progress& now) {
            display_.show(now);
            return true;
        };
        return options;
    }

    /// What a tree's transfer collected instead of throwing it.
    void take(const tree_result& result)
    {
        for (const tree_failure& one : result.failures) {
            display_.erase();
            try {
                std::rethrow_exception(one.error);
            } catch (const std::exception& error) {
                all_.add(error);
            }
        }
    }

    /// Carries out the transfer of a single file, whose size is asked for only where it is told.
    void single(const std::string& path, transfer_options options, const std::function<std::uint64_t()>& size,
                const std::function<void(transfer_options&)>& act)
    {
        tree_action action;
        action.path = path;
        if (how_.dry_run || (tells_ && how_.json)) {
            action.size = size();
        }
        options.on_progress = [&](const progress& now) {
            display_.show(last_segment(path), now);
            return true;
        };
        if (!how_.dry_run) {
            act(options);
        }
        tell(action);
    }

private:
    void tell(const tree_action& action)
    {
        if (tells_) {
            display_.erase();
            print_action(action, how_);
            flush_output();
        }
    }

    session& remote_;
    const settings& how_;
    progress_display display_;
    attempts all_;
    bool tells_;
};

bool tells_of_files(const settings& how)
{
    return how.json || how.verbose || how.dry_run;
}

/// Where the copy of what is called `name` goes.
fs::path local_place(const std::string& target, const std::string& name)
{
    const bool into = target.empty() || target.ends_with('/') || fs::is_directory(target);
    if (target.empty() && name.empty()) {
        throw usage_error("The root folder has no name for its copy: name a local folder.");
    }
    return into ? fs::path(target) / name : fs::path(target);
}

/// What a source stands for, and whether more than its name is known.
struct wanted {
    located source;
    bool known = false;
};

std::vector<wanted> find_sources(session& remote, const std::vector<std::string>& sources, attempts& all)
{
    std::vector<wanted> found;
    for (const std::string& source : sources) {
        if (!has_glob(source)) {
            found.push_back({{or_here(source), {}}, false});
            continue;
        }
        all.attempt([&] {
            for (located& one : expand_glob(remote, source)) {
                found.push_back({std::move(one), true});
            }
        });
    }
    return found;
}

void get_one(transfer& job, const wanted& one, const transfer_arguments& given)
{
    session& remote = job.remote();
    const std::string& path = one.source.path;
    const bool file = one.known && one.source.what.kind == entry_kind::file;
    const bool folder = !file && (one.known || given.recursive) && remote.is_folder(path);
    if (folder && !given.recursive) {
        note(job.how(), "\"" + printable(path) + "\" is a folder and left out; -r fetches it.");
        return;
    }
    const fs::path local = local_place(given.target, last_segment(remote.absolute(path)));
    if (folder) {
        job.take(fetch_tree(remote, path, local, job.watched(given.tree)));
        return;
    }
    const auto size = [&] { return remote.stat(path).size.value_or(0); };
    job.single(path, given.tree.transfer, size,
               [&](transfer_options& options) { remote.fetch(path, local, options); });
}

/// "." and the like have the name of the folder that they stand for.
std::string local_name(const fs::path& source)
{
    const std::string name = last_segment(source.string());
    return name.empty() || name == "." || name == ".." ? fs::weakly_canonical(source).filename().string()
                                                       : name;
}

void put_one(transfer& job, const fs::path& source, const transfer_arguments& given, bool into)
{
    session& remote = job.remote();
    const std::string path = into ? join(given.target, local_name(source)) : given.target;
    if (fs::is_directory(source)) {
        if (!given.recursive) {
            raise<local_error>(fl::i18n::utf8_to_ustring(source.string()), "it is a folder, which -r sends");
        }
        job.take(send_tree(remote, source, path, job.watched(given.tree)));
        return;
    }
    const auto size = [&] { return fs::file_size(source); };
    job.single(path, given.tree.transfer, size,
               [&](transfer_options& options) { remote.send(source, path, options); });
}

} // namespace

void get(session& remote, const transfer_arguments& given, const settings& how)
{
    attempts finding(given.sources.size() == 1);
    const std::vector<wanted> found = find_sources(remote, given.sources, finding);
    if (found.size() > 1 && !given.target.empty() && !fs::is_directory(given.target)) {
        throw usage_error("Several files cannot all become \"" + given.target +
                          "\": name a folder that exists.");
    }
    transfer job(remote, how, found.size() == 1 && given.sources.size() == 1, tells_of_files(how));
    for (const wanted& one : found) {
        job.attempt([&] { get_one(job, one, given); });
    }
    job.finish();
    finding.finish();
}

void put(session& remote, const transfer_arguments& given, const settings& how)
{
    const bool several = given.sources.size() > 1;
    const bool into = given.target.empty() || given.target.ends_with('/') || remote.is_folder(given.target);
    if (several && !into) {
        throw usage_error("Several files cannot all become \"" + given.target + "\": name a remote folder.");
    }
    transfer job(remote, how, !several, tells_of_files(how));
    for (const std::string& source : given.sources) {
        job.attempt([&] { put_one(job, source, given, into); });
    }
    job.finish();
}

void sync(session& remote, const sync_arguments& given, const settings& how)
{
    transfer job(remote, how, true, !how.quiet || how.json || how.dry_run);
    job.attempt([&] {
        job.take(
            synchronise(remote, given.local, or_here(given.remote), given.way, job.watched(given.options)));
    });
    job.finish();
}

} // namespace qrftp::cli

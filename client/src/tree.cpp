#include "local_file.hpp"
#include "names.hpp"
#include "tree_plan.hpp"

#include <foundation/core/except/Exception.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace qrftp {

namespace files = zorbel::io::common::file;
namespace fs = std::filesystem;
using foundation::core::except::raise;
using std::chrono::steady_clock;

namespace {

/// Where the two trees of a plan are.
struct sides {
    fs::path local;
    std::string remote;
    direction way;
};

/// No symbolic link on the way below `root` may lead somewhere else.
void refuse_links(const fs::path& root, const std::string& path)
{
    fs::path below = root;
    for (const fs::path& segment : fs::path(path)) {
        below /= segment;
        std::error_code ignored; // What is not there is no link.
        if (fs::is_symlink(fs::symlink_status(below, ignored))) {
            raise<error::UnsafeName>(below.string(), "a symbolic link stands in its way");
        }
    }
}

void make_local_folder(const fs::path& folder)
{
    std::error_code code;
    fs::create_directories(folder, code);
    if (code) {
        raise_folder_error(folder, code);
    }
}

void remove_local(const fs::path& path)
{
    std::error_code code;
    fs::remove(path, code);
    if (code) {
        files::raise_file_error(path, code);
    }
}

/// Takes the steps of one plan, the copies over several connections side by side.
class runner {
public:
    runner(session& first, const sides& where, const tree_options& how, tree_scan& from)
        : first_(first), where_(where), how_(how), from_(from)
    {
        result_.failures = std::move(from.failures);
        result_.skipped = std::move(from.skipped);
    }

    tree_result run(std::vector<tree_action> plan)
    {
        if (how_.dry_run) {
            std::for_each(plan.begin(), plan.end(), [&](const tree_action& action) { tell(action); });
            result_.done = std::move(plan);
            return std::move(result_);
        }
        const auto is_copy = [](const tree_action& action) { return action.what == tree_action::kind::copy; };
        const auto copies = std::find_if(plan.begin(), plan.end(), is_copy);
        const auto removals = std::find_if_not(copies, plan.end(), is_copy);
        for (auto action = plan.begin(); action != copies; ++action) {
            attempt(first_, *action, 0);
        }
        copy_all({copies, removals});
        for (auto action = removals; action != plan.end(); ++action) {
            attempt(first_, *action, 0);
        }
        return std::move(result_);
    }

private:
    void copy_all(const std::vector<tree_action>& copies)
    {
        files_ = copies.size();
        for (const tree_action& copy : copies) {
            total_ += copy.size;
        }
        began_ = steady_clock::now();
        std::atomic<std::size_t> next = 0;
        const auto work = [&](session& server, unsigned job) {
            for (std::size_t i = next++; i < copies.size() && !stopped_; i = next++) {
                attempt(server, copies[i], job);
            }
        };
        {
            std::vector<std::jthread> others;
            const auto jobs = std::min<std::size_t>(std::max(how_.jobs, 1U), copies.size());
            for (unsigned job = 1; job < jobs; ++job) {
                others.emplace_back([&, job] { work_elsewhere(work, job); });
            }
            try {
                work(first_, 0);
            } catch (...) {
                stop(std::current_exception());
            }
        }
        if (stopped_) {
            std::rethrow_exception(stopped_by_);
        }
    }

    template <class Work>
    void work_elsewhere(const Work& work, unsigned job) noexcept
    {
        std::optional<session> server;
        try {
            server = first_.another();
        } catch (...) {
            return; // Many servers limit the connections of one user; those that came about do the work.
        }
        try {
            work(*server, job);
        } catch (...) {
            stop(std::current_exception());
        }
    }

    void stop(std::exception_ptr why)
    {
        const std::lock_guard lock(mutex_);
        if (!stopped_.exchange(true)) {
            stopped_by_ = std::move(why);
        }
    }

    /// Takes one step; its failure is thrown, or collected.
    void attempt(session& server, const tree_action& action, unsigned job)
    {
        try {
            take(server, action, job);
        } catch (const error::Cancelled&) {
            throw;
        } catch (...) {
            if (!how_.keep_going) {
                throw;
            }
            const std::lock_guard lock(mutex_);
            result_.failures.push_back({action.path, std::current_exception()});
            return;
        }
        const std::lock_guard lock(mutex_);
        result_.done.push_back(action);
        if (action.what == tree_action::kind::copy) {
            result_.bytes += action.size;
            ++files_done_;
            running_.erase(job);
        }
        tell(action);
    }

    void take(session& server, const tree_action& action, unsigned job)
    {
        const fs::path local = action.path.empty() ? where_.local : where_.local / action.path;
        const std::string remote =
            action.path.empty() ? where_.remote : names::join(where_.remote, action.path);
        const bool fetching = where_.way == direction::fetch;
        if (fetching && !how_.follow_links) {
            const bool folder = action.what == tree_action::kind::make_folder;
            // A link in the place of a file is replaced or removed itself, unless it is written to.
            const bool itself = folder || how_.transfer.in_place || how_.transfer.resume;
            refuse_links(where_.local, itself ? action.path : fs::path(action.path).parent_path().string());
        }
        switch (action.what) {
        case tree_action::kind::make_folder:
            fetching ? make_local_folder(local) : server.make_folder(remote, true);
            break;
        case tree_action::kind::copy:
            copy(server, action, local, remote, job);
            break;
        case tree_action::kind::remove_file:
            fetching ? remove_local(local) : server.remove_file(remote);
            break;
        case tree_action::kind::remove_folder:
            fetching ? remove_local(local) : server.remove_folder(remote);
            break;
        }
    }

    void copy(session& server, const tree_action& action, const fs::path& local, const std::string& remote,
              unsigned job)
    {
        transfer_options how = how_.transfer;
        how.on_progress = [&](const progress& now) { return report(action, now, job); };
        if (where_.way == direction::send) {
            server.send(local, remote, how);
            return;
        }
        const auto& time = from_.nodes.at(action.path).modified;
        const bool exact = time && is_exact(*time);
        how.keep_time = how.keep_time && !exact;
        if (action.size > 0) { // 0 also when the listing had none
            how.listed_size = action.size;
        }
        server.fetch(remote, local, how);
        if (how_.transfer.keep_time && exact) {
            set_modification_time(local, time->seconds);
        }
    }

    bool report(const tree_action& action, const progress& now, unsigned job)
    {
        if (stopped_) {
            return false;
        }
        if (!how_.on_progress) {
            return true;
        }
        const std::lock_guard lock(mutex_);
        running_[job] = now.bytes;
        std::uint64_t moved = result_.bytes;
        for (const auto& [other, bytes] : running_) {
            moved += bytes;
        }
        const double seconds = std::chrono::duration<double>(steady_clock::now() - began_).count();
        return how_.on_progress({job,
                                 action.path,
                                 now,
                                 {moved, total_, seconds > 0 ? static_cast<double>(moved) / seconds : 0},
                                 files_done_,
                                 files_});
    }

    void tell(const tree_action& action) const
    {
        if (how_.on_action) {
            how_.on_action(action);
        }
    }

    session& first_;
    const sides& where_;
    const tree_options& how_;
    const tree_scan& from_;
    std::mutex mutex_; ///< guards what follows, and the callbacks
    tree_result result_;
    std::map<unsigned, std::uint64_t> running_;
    std::size_t files_ = 0;
    std::size_t files_done_ = 0;
    std::uint64_t total_ = 0;
    steady_clock::time_point began_;
    std::exception_ptr stopped_by_;
    std::atomic<bool> stopped_ = false;
};

tree_result bring_over(session& server, const sides& where, const tree_options& how, const plan_options& plan)
{
    const bool fetching = where.way == direction::fetch;
    tree_scan from =
        fetching ? scan_remote(server, where.remote, how, false) : scan_local(where.local, how, false);
    tree_scan to;
    to.there = false;
    if (plan.update) {
        to = fetching ? scan_local(where.local, how, true) : scan_remote(server, where.remote, how, true);
    }
    const exact_time ask = [&](const std::string& path) {
        return server.modification_time(names::join(where.remote, path));
    };
    return runner(server, where, how, from).run(make_plan(from, to, plan, ask));
}

} // namespace

tree_result fetch_tree(session& from, const std::string& remote_folder, const fs::path& local_folder,
                       const tree_options& how)
{
    return bring_over(from, {local_folder, from.absolute(remote_folder), direction::fetch}, how, {});
}

tree_result send_tree(session& to, const fs::path& local_folder, const std::string& remote_folder,
                      const tree_options& how)
{
    return bring_over(to, {local_folder, to.absolute(remote_folder), direction::send}, how, {});
}

tree_result synchronise(session& with, const fs::path& local_folder, const std::string& remote_folder,
                        direction way, const sync_options& how)
{
    return bring_over(with, {local_folder, with.absolute(remote_folder), way}, how,
                      {.update = true, .remove_extra = how.remove_extra});
}

} // namespace qrftp

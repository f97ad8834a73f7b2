#pragma once

#include "copy_job.hpp"
#include "pipeline.hpp"

#include <deque>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

namespace qrftp::sftp {

/// Sends what is waiting and waits for what is owed, although the caller asked for the end; for some seconds at
/// most, and without telling what fails.
void drain(pipeline& server) noexcept;

/// How much may wait to be sent: more would only take memory.
inline constexpr std::size_t max_unsent = std::size_t{512} * 1024;

/// Copies the files of a batch, many at once, over one connection after another. `Job` is what one file does.
template <class Job>
class bulk_copy {
public:
    using batch_type = typename Job::batch_type;

    bulk_copy(batch_type& files, copy_hooks hooks) : files_(files), hooks_(std::move(hooks)) {}

    /// Copies until the batch gives no more and all have ended. What ends the session is thrown; what was under
    /// way is then begun anew by the next call, once, or has been reported to the batch as lost. After
    /// `Cancelled`, and what the batch throws, nothing is left open on the server, nor under a temporary name.
    void run(pipeline& server)
    {
        copy_state state(server);
        try {
            while (start_files(state), send_requests(state), report(state), !active_.empty()) {
                server.pump();
            }
            flush(server);
        } catch (...) {
            stop(state, std::current_exception());
            throw;
        }
    }

    /// Whether `run` has got further since the last time that this was asked.
    [[nodiscard]] bool has_advanced() { return std::exchange(reported_, 0) > 0; }

private:
    using part = typename batch_type::part;

    struct active_job {
        part what;
        std::unique_ptr<Job> job;
    };

    void start_files(copy_state& state)
    {
        while (state.handles.has_room() && state.planned < state.bytes.size() && state.ended.empty()) {
            std::optional<active_job> next = next_job();
            if (!next) {
                return;
            }
            next->job->position = active_.size();
            active_.push_back(std::move(*next));
            active_.back().job->start(state);
        }
    }

    std::optional<active_job> next_job()
    {
        auto& again = !postponed_.empty() ? postponed_ : alone_;
        if (!again.empty() && (&again == &postponed_ || active_.empty())) {
            std::optional<active_job> first(std::move(again.front()));
            again.pop_front();
            return first;
        }
        if (!exhausted_) {
            if (const std::optional<part> what = files_.next()) {
                return active_job{*what, std::make_unique<Job>(*what)};
            }
            exhausted_ = true;
            return next_job();
        }
        return {};
    }

    void send_requests(copy_state& state)
    {
        while (!state.ready.empty() && state.bytes.has_room() && state.server.unsent() < max_unsent) {
            state.ready.front()->advance();
        }
    }

    void report(copy_state& state)
    {
        while (!state.ended.empty()) {
            active_job done = take_ended(state);
            if (done.job->is_postponed()) {
                (done.job->wants_to_be_alone() ? alone_ : postponed_).push_back(std::move(done));
                continue;
            }
            ++reported_;
            done.job->settle(hooks_);
            if (done.job->failure()) {
                files_.failed(done.what, done.job->failure());
            } else {
                files_.finished(done.what);
            }
        }
        if (active_.empty() && !(postponed_.empty() && alone_.empty() && exhausted_)) {
            start_files(state);
        }
    }

    /// The same, after something else has failed.
    void report_ended(copy_state& state, const std::exception_ptr& why) noexcept
    {
        while (!state.ended.empty()) {
            active_job done = take_ended(state);
            if (done.job->is_postponed()) {
                report_lost(done.what, why);
                continue;
            }
            done.job->settle(hooks_);
            if (done.job->failure()) {
                report_lost(done.what, done.job->failure());
            } else {
                report_finished(done.what);
            }
        }
    }

    active_job take_ended(copy_state& state)
    {
        const std::size_t position = state.ended.back()->position;
        state.ended.pop_back();
        return take(position);
    }

    active_job take(std::size_t position)
    {
        active_job taken = std::move(active_[position]);
        if (position + 1 < active_.size()) {
            active_[position] = std::move(active_.back());
            active_[position].job->position = position;
        }
        active_.pop_back();
        return taken;
    }

    static void flush(pipeline& server)
    {
        while (server.unsent() > 0) {
            server.pump();
        }
    }

    void stop(copy_state& state, const std::exception_ptr& why)
    {
        report_ended(state, why);
        std::vector<active_job> left = std::exchange(active_, {});
        if (state.server.is_open()) {
            for (active_job& each : left) {
                each.job->fail(why);
            }
            drain(state.server);
        }
        for (active_job& each : left) {
            if (!state.server.is_open() && each.job->interrupt()) {
                postponed_.push_back(std::move(each));
            } else {
                report_lost(each.what, why);
            }
        }
    }

    void report_finished(const part& done) noexcept
    {
        try {
            files_.finished(done);
        } catch (...) { // NOLINT(bugprone-empty-catch): as below
        }
    }

    void report_lost(const part& lost, const std::exception_ptr& why) noexcept
    {
        try {
            files_.failed(lost, why);
        } catch (...) { // NOLINT(bugprone-empty-catch): the batch has ended already, for a reason of its own
        }
    }

    batch_type& files_;
    copy_hooks hooks_;
    std::vector<active_job> active_{};
    std::deque<active_job> postponed_{};
    std::deque<active_job> alone_{}; ///< refused while others were open: to be opened alone
    std::size_t reported_ = 0;
    bool exhausted_ = false;
};

} // namespace qrftp::sftp

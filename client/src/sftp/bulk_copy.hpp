#pragma once

#include "copy_job.hpp"
#include "pipeline.hpp"

#include <algorithm>
#include <deque>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

namespace qrftp::sftp {

/// Sends what is waiting and waits for what is owed, although the caller asked for the end; for some seconds at
/// most, and without telling what fails.
void drain(pipeline& server) noexcept;

/// Sends what is waiting, without waiting for answers.
void send_all(pipeline& server);

/// How much may wait to be sent: more would only take memory.
inline constexpr std::size_t max_unsent = std::size_t{512} * 1024;

/// Copies the files of a batch, many at once, over one connection after another. `Job` is what one file does.
template <class Job>
class bulk_copy {
public:
    using batch_type = typename Job::batch_type;

    bulk_copy(batch_type& files, copy_hooks hooks) : files_(files), hooks_(std::move(hooks)) {}

    /// Copies until the batch gives no more and all have ended. What ends the session is thrown; what was under
    /// way is then taken up again by the next call, or has been reported to the batch as lost. After
    /// `Cancelled`, and what the batch throws, nothing is left open on the server, nor under a temporary name.
    void run(pipeline& server)
    {
        copy_state state(server, Job::first_window);
        try {
            while (start_files(state), send_requests(state), report(state), !active_.empty()) {
                server.pump();
                tick();
            }
            send_all(server);
        } catch (...) {
            stop(state, std::current_exception());
            has_advanced_ = has_advanced_ || state.bytes.answered() > 0;
            throw;
        }
    }

    /// The connection is lost: whether `run` is to go on over another one.
    [[nodiscard]] bool retry(const std::exception_ptr& why)
    {
        if (files_.ends_with_connection() && give_back()) {
            return false;
        }
        return files_.retry(why, std::exchange(has_advanced_, false));
    }

    /// Whether the batch has ended by throwing: there is nothing to go on with.
    [[nodiscard]] bool is_over() const noexcept { return is_over_; }
    /// There will be no other connection: reports what was to be begun anew.
    void give_up(const std::exception_ptr& why) noexcept
    {
        for (auto* const waiting : {&postponed_, &alone_}) {
            for (const active_job& each : *waiting) {
                try_to_tell(each.what, why);
            }
            waiting->clear();
        }
    }

private:
    using part = typename batch_type::part;

    struct active_job {
        part what;
        std::unique_ptr<Job> job;
    };

    void start_files(copy_state& state)
    {
        state.handles.resize(state.server.round_trip(), state.server.limits().handles);
        while (state.handles.has_room() && state.planned <= std::min(state.bytes.size(), Job::lead) &&
               state.ended.empty()) {
            std::optional<active_job> next = next_job();
            if (!next) {
                return;
            }
            next->job->position = active_.size();
            active_.push_back(std::move(*next));
            active_.back().job->start(state);
        }
    }

    /// Lets one file report that nothing moves, so that it can be ended by whoever is told.
    void tick()
    {
        const auto now = pipeline::clock::now();
        if (now - ticked_ >= pipeline::tick_interval && !active_.empty()) {
            ticked_ = now;
            active_.front().job->tick();
        }
    }

    /// Gives back what other connections can carry; whether that was all.
    bool give_back()
    {
        for (auto* const waiting : {&postponed_, &alone_}) {
            std::erase_if(*waiting, [this](const active_job& each) {
                const auto left = each.job->left_of(each.what.range);
                if (left) {
                    files_.take_back({each.what.file, *left});
                }
                return left.has_value();
            });
        }
        return postponed_.empty() && alone_.empty();
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
            done.job->settle(hooks_);
            tell(done.what, done.job->failure());
            if (hooks_.on_file_ended && done.what.range.is_whole()) {
                hooks_.on_file_ended();
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
            done.job->settle(hooks_);
            try_to_tell(done.what, done.job->is_postponed() ? why : done.job->failure());
        }
    }

    void tell(const part& ended, const std::exception_ptr& failure)
    {
        has_advanced_ = true;
        is_over_ = true; // if the batch throws
        if (failure) {
            files_.failed(ended, failure);
        } else {
            files_.finished(ended);
        }
        is_over_ = false;
    }

    void try_to_tell(const part& ended, const std::exception_ptr& failure) noexcept
    {
        const bool was_over = is_over_;
        try {
            tell(ended, failure);
            is_over_ = was_over;
        } catch (...) { // NOLINT(bugprone-empty-catch): the failure before it ends the batch already
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
                try_to_tell(each.what, why);
            }
        }
    }

    batch_type& files_;
    copy_hooks hooks_;
    std::vector<active_job> active_{};
    std::deque<active_job> postponed_{};
    std::deque<active_job> alone_{}; ///< refused while others were open: to be opened alone
    pipeline::clock::time_point ticked_ = pipeline::clock::now();
    bool has_advanced_ = false; ///< since the connection was lost last
    bool exhausted_ = false;
    bool is_over_ = false;
};

} // namespace qrftp::sftp

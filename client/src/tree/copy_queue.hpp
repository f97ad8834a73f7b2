#pragma once

#include "../protocol.hpp"
#include "../transfer/meter.hpp"
#include "outcome.hpp"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

namespace qrftp {

/// The files of a tree that are to be copied. Every connection takes from it by a `view` of its own.
template <class File>
class copy_queue {
public:
    /// Makes the file for the copy at this place of the list; may throw, which is this file's failure.
    using maker = std::function<std::unique_ptr<File>(std::size_t index, const transfer_options&, meter&)>;

    copy_queue(const std::vector<tree_action>& copies, const tree_options& options,
               const session_options& session, std::stop_token stop, tree_outcome& outcome, maker make)
        : copies_(copies), options_(options), stop_(std::move(stop)), outcome_(outcome), make_(std::move(make)),
          limiter_(make_rate_limiter(options.transfer.rate_limit, session.total_timeout)),
          retries_(options.transfer, session, stop_)
    {
    }

    class view final : public batch<File> {
    public:
        using part = typename batch<File>::part;

        view(copy_queue& queue, unsigned job) : batch<File>(queue.retries_), queue_(queue), job_(job) {}

        std::optional<part> next() override
        {
            File* const file = queue_.begin_next(job_);
            return file == nullptr ? std::nullopt : std::optional(part{file, {}});
        }
        void finished(const part& done) override { queue_.outcome_.done(queue_.end(done.file)); }
        void failed(const part& lost, std::exception_ptr why) override
        {
            queue_.outcome_.failed(queue_.end(lost.file).path, why);
        }

    private:
        copy_queue& queue_;
        unsigned job_;
    };

private:
    struct item {
        const tree_action* action = nullptr;
        std::uint64_t reported = 0;
        std::optional<meter> progress_meter{};
        std::unique_ptr<File> file{};
    };

    /// Null when nothing is left.
    File* begin_next(unsigned job)
    {
        while (const tree_action* const action = take()) {
            try {
                return begin(*action, job);
            } catch (const error&) {
                outcome_.failed(action->path, std::current_exception());
            }
        }
        return nullptr;
    }

    const tree_action* take()
    {
        const std::lock_guard lock(mutex_);
        return next_ < copies_.size() && !stop_.stop_requested() ? &copies_[next_++] : nullptr;
    }

    File* begin(const tree_action& action, unsigned job)
    {
        auto made = std::make_unique<item>();
        made->action = &action;
        transfer_options options = options_.transfer;
        options.on_progress = {};
        if (options_.on_progress) {
            options.on_progress = [this, job, self = made.get()](const progress& now) {
                const auto moved =
                    static_cast<std::int64_t>(now.bytes - std::exchange(self->reported, now.bytes));
                return outcome_.report(job, self->action->path, now, moved);
            };
        }
        made->progress_meter.emplace(action.path, options, limiter_, stop_);
        const auto index = static_cast<std::size_t>(&action - copies_.data());
        made->file = make_(index, options, *made->progress_meter);
        File* const file = made->file.get();
        const std::lock_guard lock(mutex_);
        under_way_.emplace(file, std::move(made));
        return file;
    }

    const tree_action& end(const File* file)
    {
        const std::lock_guard lock(mutex_);
        const auto found = under_way_.find(file);
        const tree_action& action = *found->second->action;
        under_way_.erase(found);
        return action;
    }

    const std::vector<tree_action>& copies_;
    const tree_options& options_;
    std::stop_token stop_;
    tree_outcome& outcome_;
    maker make_;
    std::shared_ptr<rate_limiter> limiter_;
    retry_policy retries_; ///< for each connection
    std::mutex mutex_;
    std::size_t next_ = 0;
    std::map<const File*, std::unique_ptr<item>> under_way_;
};

} // namespace qrftp

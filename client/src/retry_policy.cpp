#include "retry_policy.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace qrftp {

using std::chrono::milliseconds;

retry_policy::retry_policy(const transfer_options& transfer, const session_options& session,
                           std::stop_token stop)
    : retries_(transfer.retries), delay_(transfer.retry_delay),
      retries_stalls_(session.total_timeout == milliseconds::zero()), stop_(std::move(stop))
{
}

bool retry_policy::again(const std::exception_ptr& why, bool advanced)
{
    try {
        std::rethrow_exception(why);
    } catch (const error& failure) {
        if (!is_temporary(failure.cause(), advanced)) {
            return false;
        }
        // A source that changes all the time advances for ever.
        failures_ = advanced && failure.cause() != error_cause::size_mismatch ? 0 : failures_;
        if (failures_++ >= retries_) {
            return false;
        }
        wait(failure.path());
        return true;
    } catch (...) {
        return false;
    }
}

bool retry_policy::is_temporary(error_cause why, bool advanced) const
{
    switch (why) {
    case error_cause::connection_lost:
        return true;
    case error_cause::no_connection:
        return failures_ > 0; // There was one.
    case error_cause::timeout:
    case error_cause::size_mismatch:
        return advanced && retries_stalls_;
    default:
        return false;
    }
}

/// The first time at once, then for a time that doubles.
void retry_policy::wait(const std::string& subject) const
{
    constexpr unsigned most_doublings = 10;
    const milliseconds pause =
        failures_ < 2 ? milliseconds::zero() : delay_ * (1U << std::min(failures_ - 2, most_doublings));
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any never;
    never.wait_for(lock, stop_, pause, [] { return false; });
    if (stop_.stop_requested()) {
        throw Cancelled(subject);
    }
}

} // namespace qrftp

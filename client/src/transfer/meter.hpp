#pragma once

#include <qrftp/transfer.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>

namespace qrftp {

/// Holds what several transfers move together to a number of bytes per second. Any number of threads.
class rate_limiter {
public:
    /// None of the transfers may take longer than `longest`; 0 means no limit, as with the rate.
    rate_limiter(std::uint64_t bytes_per_second, std::chrono::milliseconds longest)
        : rate_(bytes_per_second), longest_(longest)
    {
    }

    /// Counts `bytes`; returns how long to wait before more is moved.
    std::chrono::duration<double> count(std::uint64_t bytes);
    [[nodiscard]] bool has_rate() const { return rate_ > 0; }
    [[nodiscard]] std::chrono::milliseconds longest() const { return longest_; }

private:
    using clock = std::chrono::steady_clock;

    std::uint64_t rate_;
    std::chrono::milliseconds longest_;
    std::mutex mutex_;
    clock::time_point free_at_{}; ///< when what has been counted is within the rate
};

/// Null where there is neither limit.
std::shared_ptr<rate_limiter> make_rate_limiter(std::uint64_t bytes_per_second,
                                                std::chrono::milliseconds longest);

/// Counts what one transfer has moved, reports it and holds it back. Throws `Cancelled` about `subject` when
/// `on_progress` or the stop token asks for the end, and `Timeout` when it is held back for too long. Any
/// number of threads.
class meter {
public:
    meter(std::string subject, const transfer_options& options, std::shared_ptr<rate_limiter> limiter,
          std::stop_token stop);

    /// `found` of `total` bytes are there already; 0 stands for a total that is not known.
    void start(std::uint64_t total, std::uint64_t found);
    void add(std::uint64_t bytes);
    /// Nothing has moved: reports that too.
    void tick() { report(false); }
    /// Waits a little for something that is not ready yet.
    void pause();
    /// What was added comes once more.
    void restart();
    /// Reports the final figures, however short ago the last ones were.
    void finish();

    [[nodiscard]] std::uint64_t moved() const;
    /// Throws the `Timeout` of a transfer that has taken longer than `limit`.
    [[noreturn]] void throw_unfinished(std::chrono::milliseconds limit) const;

private:
    using clock = std::chrono::steady_clock;

    void report(bool final_figures);
    void check_time() const;

    std::string subject_;
    std::function<bool(const progress&)> on_progress_;
    std::shared_ptr<rate_limiter> limiter_;
    std::stop_token stop_;
    mutable std::mutex mutex_;
    std::uint64_t total_ = 0;
    std::uint64_t found_ = 0;
    std::uint64_t moved_ = 0;
    clock::time_point started_ = clock::now();
    clock::time_point began_{}; ///< the first byte: what the connection took before is no part of the rate
    clock::time_point reported_{};
};

} // namespace qrftp

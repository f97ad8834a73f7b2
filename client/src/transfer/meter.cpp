#include "meter.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace qrftp {

namespace {

using seconds_moved = std::chrono::duration<double>;

std::string in_mebibytes(std::uint64_t bytes)
{
    constexpr double mebibyte = 1 << 20;
    return fmt::format("{:.4g}", static_cast<double>(bytes) / mebibyte);
}

} // namespace

seconds_moved rate_limiter::count(std::uint64_t bytes)
{
    const std::lock_guard lock(mutex_);
    const auto now = clock::now();
    const seconds_moved step(static_cast<double>(bytes) / static_cast<double>(rate_));
    // What was not used while nothing moved is not made up for, but for the length of a nap.
    constexpr std::chrono::milliseconds made_up_for(50);
    free_at_ = std::max(free_at_, now - made_up_for) + std::chrono::duration_cast<clock::duration>(step);
    return free_at_ - now;
}

std::shared_ptr<rate_limiter> make_rate_limiter(std::uint64_t bytes_per_second,
                                                std::chrono::milliseconds longest)
{
    return bytes_per_second == 0 && longest.count() == 0
               ? nullptr
               : std::make_shared<rate_limiter>(bytes_per_second, longest);
}

meter::meter(std::string subject, const transfer_options& options, std::shared_ptr<rate_limiter> limiter,
             std::stop_token stop)
    : subject_(std::move(subject)), on_progress_(options.on_progress), limiter_(std::move(limiter)),
      stop_(std::move(stop))
{
}

void meter::start(std::uint64_t total, std::uint64_t found)
{
    const std::lock_guard lock(mutex_);
    total_ = total;
    found_ = found;
}

void meter::add(std::uint64_t bytes)
{
    constexpr seconds_moved slice(0.05);
    {
        const std::lock_guard lock(mutex_);
        if (moved_ == 0) {
            began_ = clock::now();
        }
        moved_ += bytes;
    }
    report(false);
    if (limiter_ == nullptr || !limiter_->has_rate()) {
        return;
    }
    const auto until = clock::now() + std::chrono::duration_cast<clock::duration>(limiter_->count(bytes));
    while (clock::now() < until) {
        std::this_thread::sleep_for(std::min(seconds_moved(until - clock::now()), slice));
        check_time();
        report(false);
    }
}

/// Nothing that waits for the network sees the limit while a transfer is held back.
void meter::check_time() const
{
    const std::chrono::milliseconds longest = limiter_->longest();
    if (longest.count() > 0 && clock::now() - started_ >= longest) {
        throw_unfinished(longest);
    }
}

void meter::throw_unfinished(std::chrono::milliseconds limit) const
{
    const std::lock_guard lock(mutex_);
    const std::string total = total_ == 0 ? "" : fmt::format(" of {}", in_mebibytes(total_));
    throw Timeout(subject_, fmt::format("{:g} s (--timeout): {}{} MiB", seconds_moved(limit).count(),
                                        in_mebibytes(found_ + moved_), total));
}

void meter::pause()
{
    constexpr std::chrono::milliseconds a_little(50);
    report(false);
    if (limiter_ != nullptr) {
        check_time();
    }
    std::this_thread::sleep_for(a_little);
}

void meter::restart()
{
    const std::lock_guard lock(mutex_);
    moved_ = 0;
}

void meter::finish()
{
    {
        const std::lock_guard lock(mutex_);
        total_ = found_ + moved_; // known now, if it was not before
    }
    report(true);
}

std::uint64_t meter::moved() const
{
    const std::lock_guard lock(mutex_);
    return moved_;
}

void meter::report(bool final_figures)
{
    constexpr std::chrono::milliseconds interval(50);
    if (stop_.stop_requested()) {
        throw Cancelled(subject_);
    }
    if (!on_progress_) {
        return;
    }
    const std::lock_guard lock(mutex_);
    const auto now = clock::now();
    if (!final_figures && now - reported_ < interval) {
        return;
    }
    reported_ = now;
    const double elapsed = seconds_moved(now - began_).count();
    constexpr double shortest = 0.01; // What came at once says nothing of the line.
    const double rate = moved_ > 0 && elapsed > shortest ? static_cast<double>(moved_) / elapsed : 0;
    if (!on_progress_({found_ + moved_, total_, rate})) {
        throw Cancelled(subject_);
    }
}

} // namespace qrftp

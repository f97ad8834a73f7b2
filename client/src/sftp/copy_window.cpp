#include "copy_window.hpp"

#include <sys/resource.h>

#include <algorithm>

namespace qrftp::sftp {

namespace {

constexpr std::uint64_t fewest_handles = 32;
constexpr std::uint64_t handles_per_millisecond = 10;
constexpr std::uint64_t most_handles = 512;
constexpr std::uint64_t handles_for_others = 4; ///< single requests open folders meanwhile

/// Each remote file that is open has a local one: a quarter of what the process may have is left to a
/// connection.
std::uint64_t local_limit()
{
    rlimit limit{};
    return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? std::max<std::uint64_t>(limit.rlim_cur / 4, 1)
                                                   : most_handles;
}

std::size_t largest_window(std::chrono::nanoseconds round_trip, std::uint64_t server_limit)
{
    const auto longest = std::chrono::milliseconds(1000);
    const auto waited =
        std::chrono::ceil<std::chrono::milliseconds>(std::min<std::chrono::nanoseconds>(round_trip, longest));
    const std::uint64_t wanted =
        fewest_handles + handles_per_millisecond * static_cast<std::uint64_t>(waited.count());
    const std::uint64_t offered =
        server_limit == 0 ? most_handles : server_limit - std::min(server_limit, handles_for_others);
    return std::max<std::uint64_t>(1, std::min({wanted, most_handles, offered, local_limit()}));
}

} // namespace

handle_window::handle_window(std::chrono::nanoseconds round_trip, std::uint64_t server_limit)
    : round_trip_(round_trip), server_limit_(server_limit), largest_(largest_window(round_trip, server_limit)),
      size_(largest_)
{
}

void handle_window::resize(std::chrono::nanoseconds round_trip, std::uint64_t server_limit)
{
    if (round_trip != round_trip_ || server_limit != server_limit_) {
        round_trip_ = round_trip;
        server_limit_ = server_limit;
        largest_ = largest_window(round_trip, server_limit);
        size_ = std::min(size_, largest_);
    }
}

void handle_window::on_opened() noexcept
{
    ++opened_;
    size_ = std::min(size_ + 1, largest_);
}

void handle_window::on_refused() noexcept
{
    --asked_;
    size_ = std::max<std::size_t>(1, std::min(size_, opened_));
}

void handle_window::on_closed(bool was_opened) noexcept
{
    --asked_;
    opened_ -= was_opened ? 1 : 0;
}

void byte_window::on_answered(std::uint64_t bytes, std::uint64_t largest) noexcept
{
    in_flight_ -= bytes;
    answered_ += bytes;
    size_ = std::max(size_, std::min(size_ + bytes, largest));
}

} // namespace qrftp::sftp

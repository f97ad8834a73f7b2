#include "interruptible_wait.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <utility>
#include <vector>

namespace qrftp::sftp {

using std::chrono::milliseconds;

namespace {

unique_fd make_event()
{
    unique_fd event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return event;
}

} // namespace

interruptible_wait::interruptible_wait(std::string subject, std::stop_token stop, milliseconds limit)
    : subject_(std::move(subject)), stop_(std::move(stop)), limit_(limit), deadline_(clock::now() + limit),
      event_(make_event()), on_stop_(stop_, [fd = event_.get()] { signal(fd); })
{
}

void interruptible_wait::signal(int event) noexcept
{
    const std::uint64_t one = 1;
    // An event that cannot be written to has been written to before.
    [[maybe_unused]] const auto written = ::write(event, &one, sizeof one);
}

void interruptible_wait::restart()
{
    deadline_ = clock::now() + limit_;
}

void interruptible_wait::throw_if_stopped() const
{
    if (stop_.stop_requested()) {
        throw Cancelled(subject_);
    }
}

/// Whether something has come, or `wake` was called. Returns early after a signal.
bool interruptible_wait::poll(std::span<pollfd> polled, std::optional<clock::time_point> until)
{
    std::vector<pollfd> all(polled.begin(), polled.end());
    all.push_back({event_.get(), POLLIN, 0});
    int timeout = -1;
    if (until) {
        const auto left = std::chrono::ceil<milliseconds>(*until - clock::now()).count();
        timeout = static_cast<int>(std::clamp<std::int64_t>(left, 0, 1 << 30));
    }
    const int ready = ::poll(all.data(), all.size(), timeout);
    if (ready < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    for (std::size_t i = 0; i < polled.size(); ++i) {
        polled[i].revents = ready > 0 ? all[i].revents : short{0};
    }
    if (ready > 0 && all.back().revents != 0) {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto got = ::read(event_.get(), &count, sizeof count); // wakes once
        return true;
    }
    return std::any_of(polled.begin(), polled.end(), [](const pollfd& one) { return one.revents != 0; });
}

bool interruptible_wait::wait(std::span<pollfd> polled, milliseconds longest)
{
    const bool limited = limit_.count() > 0;
    const auto until = clock::now() + longest;
    for (;;) {
        throw_if_stopped();
        const bool has_come = poll(polled, limited ? std::min(deadline_, until) : until);
        throw_if_stopped();
        if (has_come) {
            return true;
        }
        const auto now = clock::now();
        if (limited && now >= deadline_) {
            throw Timeout(subject_, {0, fmt::format("no answer within {} s while connecting; --connect-timeout "
                                                    "and --timeout allow more",
                                                    static_cast<double>(limit_.count()) / 1000)});
        }
        if (now >= until) {
            return false;
        }
    }
}

void interruptible_wait::wait(int fd, short events)
{
    std::array<pollfd, 1> one{{{fd, events, 0}}};
    while (!wait(one, std::chrono::hours(1))) {
    }
}

short interruptible_wait::poll(int fd, short events, milliseconds longest)
{
    std::array<pollfd, 1> one{{{fd, events, 0}}};
    poll(one, clock::now() + longest);
    return one[0].revents;
}

} // namespace qrftp::sftp

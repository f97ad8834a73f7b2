#pragma once

#include "../unique_fd.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <poll.h>
#include <span>
#include <stop_token>
#include <string>

namespace qrftp::sftp {

/// Waits for file descriptors, and is woken by a stop token. The time allowed is that of one step: `restart`
/// begins the next. One thread at a time, except for `wake`.
class interruptible_wait {
public:
    /// `subject` is what errors are about. No limit of time means none.
    interruptible_wait(std::string subject, std::stop_token stop, std::chrono::milliseconds limit);

    /// Returns when one of `events` has come for `fd`, or after `wake`. Throws `Cancelled`, and `Timeout` when
    /// the step took too long.
    void wait(int fd, short events);
    /// The same for several descriptors, at most for `longest`: false when that was all that passed.
    bool wait(std::span<pollfd> polled, std::chrono::milliseconds longest);

    /// Returns when one of `events` has come, after `longest`, after `wake`, or once, when a stop was
    /// requested: the events, or 0.
    short poll(int fd, short events, std::chrono::milliseconds longest);

    /// Ends the wait that is under way, or else the next one. For any thread.
    void wake() const noexcept { signal(event_.get()); }

    /// Begins the next step.
    void restart();
    /// Throws `Cancelled` when a stop was requested.
    void throw_if_stopped() const;

    [[nodiscard]] const std::string& subject() const { return subject_; }
    [[nodiscard]] const std::stop_token& stop() const { return stop_; }
    [[nodiscard]] std::chrono::milliseconds limit() const { return limit_; }

private:
    using clock = std::chrono::steady_clock;

    static void signal(int event) noexcept;
    bool poll(std::span<pollfd> polled, std::optional<clock::time_point> until);

    std::string subject_;
    std::stop_token stop_;
    std::chrono::milliseconds limit_;
    clock::time_point deadline_;
    unique_fd event_; ///< can be read once a stop was requested, and after `wake`
    std::stop_callback<std::function<void()>> on_stop_;
};

} // namespace qrftp::sftp

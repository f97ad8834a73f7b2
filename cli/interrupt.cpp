#include "interrupt.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <mutex>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

std::atomic<int> caught{0};
std::atomic<std::int64_t> caught_at{0}; ///< in milliseconds
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free,
              "a signal handler may touch nothing else");

/// A second signal ends the process at once. Those of timeout(1) and of service managers come in twos, and are
/// one.
constexpr std::int64_t twin_interval = 250;

/// Each signal writes a byte into both pipes: one wakes the thread that requests the stop, the other one stays
/// readable until `reset_interrupt`, for `wait_readable`.
using pipe_ends = std::array<int, 2>;
pipe_ends to_watcher{-1, -1};
pipe_ends to_waiters{-1, -1};

std::mutex source_guard;
std::stop_source source;

extern "C" void catch_signal(int signal)
{
    const int saved = errno;
    timespec time{};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    const std::int64_t now = std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
    if (caught == 0) {
        caught_at = now;
        caught = signal;
    } else if (now - caught_at >= twin_interval) {
        (void)std::signal(signal, SIG_DFL);
        (void)std::raise(signal);
    }
    const char byte = 0;
    [[maybe_unused]] ssize_t written = write(to_watcher[1], &byte, 1);
    written = write(to_waiters[1], &byte, 1);
    errno = saved;
}

void open_pipe(pipe_ends& ends, int flags)
{
    if (pipe2(ends.data(), O_CLOEXEC | flags) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
}

/// Runs as long as the process.
void pass_interrupts_on()
{
    char byte = 0;
    for (;;) {
        if (read(to_watcher[0], &byte, 1) == 1 && interrupted()) {
            std::unique_lock lock(source_guard);
            const std::stop_source current = source;
            lock.unlock();
            current.request_stop();
        }
    }
}

} // namespace

void install_interrupt_handlers()
{
    open_pipe(to_watcher, 0);
    open_pipe(to_waiters, O_NONBLOCK);
    (void)std::signal(SIGPIPE, SIG_IGN);

    sigset_t all;
    sigset_t usual;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &usual); // The watcher takes no signals itself.
    std::thread(pass_interrupts_on).detach();
    pthread_sigmask(SIG_SETMASK, &usual, nullptr);

    struct sigaction action {};
    action.sa_handler = catch_signal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        (void)sigaction(signal, nullptr, &before);
        if (signal != SIGHUP || before.sa_handler != SIG_IGN) {
            (void)sigaction(signal, &action, nullptr);
        }
    }
}

std::stop_token interrupt_token()
{
    const std::scoped_lock lock(source_guard);
    return source.get_token();
}

bool interrupted()
{
    return caught != 0;
}

int interrupting_signal()
{
    return caught;
}

void reset_interrupt()
{
    const std::scoped_lock lock(source_guard);
    if (caught.exchange(0) != 0) {
        source = std::stop_source();
    }
    char byte = 0;
    while (read(to_waiters[0], &byte, 1) == 1) {
    }
}

bool wait_readable(int descriptor, std::chrono::milliseconds longest)
{
    std::array<pollfd, 2> events{{{to_waiters[0], POLLIN, 0}, {descriptor, POLLIN, 0}}};
    while (!interrupted()) {
        const int ready = poll(events.data(), events.size(), static_cast<int>(longest.count()));
        if (ready == 0 || (ready > 0 && events[1].revents != 0)) {
            return !interrupted();
        }
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
    }
    return false;
}

} // namespace qrftp::cli

#include "interrupt.hpp"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace qrftp::cli {

namespace {

std::atomic<int> caught{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may touch nothing else");

extern "C" void catch_signal(int signal)
{
    if (caught.exchange(signal) != 0) {
        (void)std::signal(signal, SIG_DFL);
        (void)std::raise(signal);
    }
}

} // namespace

void install_interrupt_handlers()
{
    struct sigaction action {};
    action.sa_handler = catch_signal; // Without SA_RESTART: a question at the terminal ends, too.
    for (const int signal : {SIGINT, SIGTERM}) {
        (void)sigaction(signal, &action, nullptr);
    }
    (void)std::signal(SIGPIPE, SIG_IGN);
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
    caught = 0;
}

} // namespace qrftp::cli

#include "trace.hpp"

#include "library_info.hpp"

#include <foundation/log/sink.hpp>
#include <foundation/text/escape.hpp>

#include <fmt/format.h>

#include <atomic>
#include <iostream>
#include <mutex>
#include <utility>

namespace qrftp {

namespace {

std::atomic<trace_level> wanted_level = trace_level::off; // NOLINT(*-avoid-non-const-global-variables)

using line_function = std::function<void(std::string_view)>;

void print(std::string_view line)
{
    std::cerr << line << '\n';
}

/// Who gets the lines, and the lock that lets one in at a time. Threads may have the lock of the host's log
/// when they take it, so that one is never taken under it. Recursive, so that a line that `on_line` itself
/// causes is lost and does no harm.
struct receiver {
    std::recursive_mutex mutex;
    line_function on_line = print;
    bool is_called = false;
};

receiver& the_receiver()
{
    static receiver instance;
    return instance;
}

/// The host's log goes to the trace; and back to where it went before.
void trace_host(bool on)
{
    static foundation::log::entry_handler before;
    if (on) {
        before = foundation::log::set_entry_handler([](const auto& each) { trace_line(each.text); });
    } else {
        foundation::log::set_entry_handler(std::exchange(before, nullptr));
    }
}

} // namespace

void set_trace(trace_level level, line_function on_line)
{
    {
        receiver& lines = the_receiver();
        const std::lock_guard lock(lines.mutex);
        lines.on_line = on_line ? std::move(on_line) : print;
    }
    const bool debug = level == trace_level::debug;
    const bool was_debug = wanted_level.exchange(level, std::memory_order_relaxed) == trace_level::debug;
    if (debug != was_debug) { // Otherwise these are the program's own.
        trace_host(debug);
        ftp::trace_libraries(debug);
        sftp::trace_libraries(debug);
    }
}

bool is_traced(trace_level level) noexcept
{
    return wanted_level.load(std::memory_order_relaxed) >= level;
}

void trace_line(std::string_view line) noexcept
try {
    const std::string shown = escape(masked(line));
    receiver& lines = the_receiver();
    const std::lock_guard lock(lines.mutex);
    if (std::exchange(lines.is_called, true)) {
        return; // a line that `on_line` itself caused would call it without end
    }
    try {
        lines.on_line(shown);
    } catch (...) { // NOLINT(bugprone-empty-catch): below
    }
    lines.is_called = false;
} catch (...) { // NOLINT(bugprone-empty-catch): the trace is no reason for a request to fail
}

std::string versions()
{
    return fmt::format("{} {}", ftp::library_versions(), sftp::library_versions());
}

std::string escape(std::string_view text)
{
    return foundation::text::escape(text);
}

void mask_secret(std::string_view secret)
{
    foundation::log::mask_secret(std::string(secret));
}

std::string masked(std::string_view text)
{
    return foundation::log::masked(text);
}

} // namespace qrftp

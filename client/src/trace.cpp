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

/// Who gets the lines, and the lock that lets one in at a time.
struct receiver {
    std::mutex mutex;
    std::function<void(std::string_view)> on_line;
};

receiver& the_receiver()
{
    static receiver instance;
    return instance;
}

} // namespace

void set_trace(trace_level level, std::function<void(std::string_view)> on_line)
{
    {
        receiver& lines = the_receiver();
        const std::lock_guard lock(lines.mutex);
        lines.on_line = std::move(on_line);
    }
    wanted_level.store(level, std::memory_order_relaxed);
    const bool debug = level == trace_level::debug;
    foundation::log::set_entry_handler(debug ? [](const foundation::log::entry& each) { trace_line(each.text); }
                                             : foundation::log::entry_handler());
    ftp::trace_libraries(debug);
    sftp::trace_libraries(debug);
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
    if (lines.on_line) {
        lines.on_line(shown);
    } else {
        std::cerr << shown << '\n';
    }
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

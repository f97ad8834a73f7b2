#pragma once

#include <zorbel/io/ftp/core/logger.hpp>

#include <exception>
#include <ostream>
#include <source_location>

namespace zorbel::io::ftp::core {

/// Writes one record at `level`, its text the `parts` in a row. Off, it costs a load of the logger's mask.
///
/// A record that cannot be had is lost: diagnostics never make an operation fail, least of all one that is
/// putting a connection back.
template <class... Parts>
void log(foundation::log::level_mask level, const Parts&... parts)
{
    auto& logger = getLogger();
    if (!logger.is_enabled(level)) {
        return;
    }
    try {
        foundation::log::record record(logger, level);
        (record.stream() << ... << parts);
    } catch (const std::exception&) {
        return;
    }
}

/// Traces the function in whose first line it stands: its signature when the function is entered (level 32) and
/// left (level 64, with " [throw]" when an exception leaves it). What is decided at entry holds at exit. Given
/// a named value, it writes that too when the function is left (level 128).
class scope_trace {
public:
    explicit scope_trace(std::source_location function = std::source_location::current()) noexcept
        : function_(function)
    {
        enter();
    }

    /// `value` is read when the function is left, and must be declared before the tracer.
    template <class Value>
    scope_trace(const char* name, const Value& value,
                std::source_location function = std::source_location::current()) noexcept
        : function_(function), name_(name), value_(&value), print_([](std::ostream& out, const void* traced) {
              out << static_cast<long>(*static_cast<const Value*>(traced));
          })
    {
        enter();
    }

    ~scope_trace()
    {
        if (entered_) {
            leave();
        }
    }

    scope_trace(const scope_trace&) = delete;
    scope_trace& operator=(const scope_trace&) = delete;

private:
    void enter() noexcept;
    void leave() noexcept;

    std::source_location function_;
    const char* name_ = nullptr;
    const void* value_ = nullptr;
    void (*print_)(std::ostream&, const void*) = nullptr;
    int exceptions_at_entry_ = 0;
    bool entered_ = false;
};

} // namespace zorbel::io::ftp::core

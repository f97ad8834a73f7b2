#pragma once

#include <zorbel/io/ftp/core/logger.hpp>

#include <exception>
#include <ostream>
#include <source_location>

namespace zorbel::io::ftp::core {

/// A level, and the place that logs at it: where the level is named in a call of `log`.
struct level_here {
    level_here(foundation::log::level_mask at,
               std::source_location here = std::source_location::current()) noexcept
        : level(at), where(here)
    {
    }

    foundation::log::level_mask level;
    std::source_location where;
};

/// Writes one record, its text the `parts` in a row. Off, it costs a load of the logger's mask.
///
/// A record that cannot be had is lost: diagnostics never make an operation fail, least of all one that is
/// putting a connection back.
template <class... Parts>
void log(const level_here& at, const Parts&... parts)
{
    auto& logger = getLogger();
    if (!logger.is_enabled(at.level)) {
        return;
    }
    try {
        foundation::log::record record(logger, at.level, at.where.file_name(), at.where.line());
        (record.stream() << ... << parts);
    } catch (const std::exception&) {
        return;
    }
}

/// Traces the function that it stands in: its signature when the function is entered (level 32) and left (level
/// 64, with " [throw]" when an exception leaves it), and a value that it was given, when the function is left
/// (level 128). What is decided at entry holds at exit.
///
/// The records carry the line of the function. The language tells the line of the tracer alone, so the tracer
/// is told the line of the body that it stands in, counted from 1; above the body is the brace, and above that
/// the function.
class scope_trace {
public:
    explicit scope_trace(unsigned line_of_body = 1,
                         std::source_location where = std::source_location::current()) noexcept
        : where_(where), line_(where.line() - line_of_body - 1)
    {
        enter();
    }

    /// `value` is read when the function is left, and must be declared before the tracer.
    template <class Value>
    void add_value(const char* name, const Value& value) noexcept
    {
        name_ = name;
        value_ = &value;
        print_ = [](std::ostream& out, const void* traced) {
            out << static_cast<long>(*static_cast<const Value*>(traced));
        };
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

    std::source_location where_;
    unsigned line_;
    const char* name_ = nullptr;
    const void* value_ = nullptr;
    void (*print_)(std::ostream&, const void*) = nullptr;
    int exceptions_at_entry_ = 0;
    bool entered_ = false;
};

} // namespace zorbel::io::ftp::core

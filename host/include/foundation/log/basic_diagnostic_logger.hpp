#pragma once

#include <zorbelhost_export.hpp>

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <source_location>
#include <string>

namespace foundation::log {

/// A severity level is a single bit; a mask is any number of them.
using level_mask = std::uint32_t;

/// A named source of diagnostic records, shared by all threads.
///
/// A record is written only if its level's bit is set in the enable mask and the logging core is on. The mask
/// starts at 0: a logger that nobody asked to speak is silent, and asking it costs one load.
class ZORBELHOST_EXPORT basic_diagnostic_logger {
public:
    /// A logger whose records carry the name `channel`.
    explicit basic_diagnostic_logger(std::string channel);
    ~basic_diagnostic_logger();
    basic_diagnostic_logger(const basic_diagnostic_logger&) = delete;
    basic_diagnostic_logger& operator=(const basic_diagnostic_logger&) = delete;

    const std::string& channel() const noexcept;

    level_mask enabled_levels() const noexcept { return mask_.load(std::memory_order_relaxed); }
    void enable_levels(level_mask mask) noexcept { mask_.store(mask, std::memory_order_relaxed); }

    /// Whether a record at `level` would be written now. Takes no lock and allocates nothing.
    bool is_enabled(level_mask level) const noexcept
    {
        return (enabled_levels() & level) != 0 && core_enabled();
    }

    /// The process-wide switch of the logging core, on at the start.
    static bool core_enabled() noexcept;
    static void enable_core(bool on);

    /// How many traced functions of this logger the calling thread is in.
    unsigned nesting_depth() const noexcept;
    /// The calling thread enters a traced function.
    void raise_nesting_depth();
    /// The calling thread leaves a traced function.
    void lower_nesting_depth() noexcept;

private:
    friend class record;
    struct implementation;

    std::atomic<level_mask> mask_{0};
    std::unique_ptr<implementation> implementation_;
};

/// One diagnostic record: opened by the constructor (under the logger's lock), filled through `stream()`
/// without it, and pushed to the logging core by the destructor, unless an exception began to unwind in
/// between. It tests no mask: that is its maker's decision. Lives on the stack of one thread.
class ZORBELHOST_EXPORT record {
public:
    /// With the place of its maker.
    record(basic_diagnostic_logger& logger, level_mask level,
           std::source_location where = std::source_location::current());
    /// With the place that the record is to carry. `file` must outlive the record.
    record(basic_diagnostic_logger& logger, level_mask level, const char* file, unsigned line);
    ~record();
    record(const record&) = delete;
    record& operator=(const record&) = delete;

    /// Where the text of the record goes.
    std::ostream& stream();

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace foundation::log

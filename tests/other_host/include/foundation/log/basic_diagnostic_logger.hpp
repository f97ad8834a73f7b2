#pragma once

#include <other_host.hpp>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace foundation::log {

using level_mask = std::uint64_t;

/// Keeps every record in memory. One thread alone uses it.
class OTHER_HOST basic_diagnostic_logger {
public:
    explicit basic_diagnostic_logger(const char* channel) : channel_(channel) {}

    static bool core_enabled() noexcept { return true; }
    bool is_enabled(level_mask level) const noexcept { return (level & enabled) != 0; }
    void raise_nesting_depth() { ++depth_; }
    void lower_nesting_depth() noexcept { --depth_; }

    level_mask enabled = 0;
    std::vector<std::string> records;

private:
    friend class record;
    std::string channel_;
    unsigned depth_ = 0;
};

class OTHER_HOST record {
public:
    record(basic_diagnostic_logger& logger, level_mask level, const char* file = "", unsigned line = 0);
    ~record();
    record(const record&) = delete;
    record& operator=(const record&) = delete;

    std::ostream& stream() { return text_; }

private:
    basic_diagnostic_logger& logger_;
    std::ostringstream text_;
    int uncaught_;
};

} // namespace foundation::log

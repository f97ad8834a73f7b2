#pragma once

#include <qrftp/entry.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace qrftp::ftp {

inline bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

inline bool is_number(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
}

inline char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Whether `text` is `lower_case` but for the case of its letters.
inline bool equals(std::string_view text, std::string_view lower_case)
{
    return std::equal(text.begin(), text.end(), lower_case.begin(), lower_case.end(),
                      [](char a, char b) { return lower(a) == b; });
}

/// The whole of `text` as a number; nothing if it is none or too great.
template <class Number>
std::optional<Number> to_number(std::string_view text, int base = 10)
{
    Number value = 0;
    const char* const end = text.data() + text.size();
    const auto [read_to, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc() && read_to == end ? std::optional(value) : std::nullopt;
}

/// A place in a line. What does not match is not passed.
class scanner {
public:
    explicit scanner(std::string_view text) : rest_(text) {}

    [[nodiscard]] std::string_view rest() const { return rest_; }

    bool take(char c)
    {
        const bool matches = rest_.starts_with(c);
        rest_.remove_prefix(matches ? 1 : 0);
        return matches;
    }

    /// Whether there was a blank at all.
    bool blanks()
    {
        const std::size_t count = std::min(rest_.find_first_not_of(' '), rest_.size());
        rest_.remove_prefix(count);
        return count > 0;
    }

    std::string_view word()
    {
        const std::string_view found = rest_.substr(0, rest_.find(' '));
        rest_.remove_prefix(found.size());
        return found;
    }

    /// All the digits here, if they are `least` to `most`.
    bool number(unsigned& value, std::size_t least, std::size_t most)
    {
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        const auto length = static_cast<std::size_t>(end - rest_.data());
        const bool matches = error == std::errc() && length >= least && length <= most;
        rest_.remove_prefix(matches ? length : 0);
        return matches;
    }

private:
    std::string_view rest_;
};

struct civil_time {
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
};

/// The time if there is such a one; a leap second is the first one of the next minute.
inline std::optional<std::chrono::sys_seconds> time_of(const civil_time& at)
{
    // The classes of the calendar keep only the low bits of what is too great for them.
    if (at.year > 9999 || at.month > 12 || at.day > 31 || at.hour > 23 || at.minute > 59 || at.second > 60) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(at.year)),
                                           std::chrono::month(at.month), std::chrono::day(at.day));
    if (!date.ok()) {
        return std::nullopt;
    }
    return std::chrono::sys_days(date) + std::chrono::hours(at.hour) + std::chrono::minutes(at.minute) +
           std::chrono::seconds(at.second);
}

enum class line_content {
    entry,
    nothing, ///< a line that is no entry and no fault
    unreadable,
};

/// Each reads one line without its end into a fresh `found`, which means something only if the answer is
/// `entry`. The name is not looked at yet.
line_content read_mlsd_line(std::string_view line, entry& found);
line_content read_unix_line(std::string_view line, std::chrono::sys_seconds now, entry& found);
line_content read_windows_line(std::string_view line, entry& found);

/// A time as MLSD and MDTM write it (RFC 3659, 2.3).
std::optional<timestamp> read_mlsd_time(std::string_view text);

} // namespace qrftp::ftp

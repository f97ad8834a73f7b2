#include "format.hpp"

#include <fmt/format.h>

#include <array>
#include <limits>

namespace qrftp::cli {

namespace {

std::string date_text(const timestamp& when)
{
    const std::chrono::year_month_day date(std::chrono::floor<std::chrono::days>(when.time));
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                       static_cast<unsigned>(date.day()));
}

std::string clock_text(const timestamp& when, bool seconds)
{
    const std::chrono::hh_mm_ss time(when.time - std::chrono::floor<std::chrono::days>(when.time));
    const std::string text = fmt::format("{:02}:{:02}", time.hours().count(), time.minutes().count());
    return seconds ? fmt::format("{}:{:02}", text, time.seconds().count()) : text;
}

} // namespace

std::string human_size(double bytes)
{
    static constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < units.size()) {
        bytes /= 1024;
        ++unit;
    }
    return fmt::format("{:.{}f} {}", bytes, unit == 0 ? 0 : 1, units.at(unit));
}

std::string clock_time(std::chrono::seconds duration)
{
    const auto seconds = duration.count();
    return seconds < 3600 ? fmt::format("{}:{:02}", seconds / 60, seconds % 60)
                          : fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::string time_text(const timestamp& when, bool seconds)
{
    const bool has_seconds = seconds && when.precision == time_precision::second;
    return date_text(when) + (when.precision == time_precision::day ? "" : " " + clock_text(when, has_seconds));
}

std::string iso_time(const timestamp& when)
{
    if (when.precision == time_precision::day) {
        return date_text(when);
    }
    return date_text(when) + 'T' + clock_text(when, when.precision == time_precision::second) +
           (when.utc ? "Z" : "");
}

std::string mode_text(const entry& what)
{
    const char type = what.kind == entry_kind::folder ? 'd'
                      : what.kind == entry_kind::link ? 'l'
                      : what.kind == entry_kind::file ? '-'
                                                      : '?';
    if (!what.mode) {
        return std::string(1, type) + "?????????";
    }
    const auto bits = static_cast<unsigned>(*what.mode);
    std::string text = "rwxrwxrwx";
    for (unsigned bit = 0; bit < 9; ++bit) {
        text[8 - bit] = (bits >> bit & 1U) != 0 ? text[8 - bit] : '-';
    }
    const auto mark = [&](unsigned bit, std::size_t place, char executable, char other) {
        if ((bits & bit) != 0) {
            text[place] = text[place] == 'x' ? executable : other;
        }
    };
    mark(04000, 2, 's', 'S');
    mark(02000, 5, 's', 'S');
    mark(01000, 8, 't', 'T');
    return type + text;
}

std::string octal_mode(std::filesystem::perms mode)
{
    return fmt::format("{:04o}", static_cast<unsigned>(mode));
}

std::string_view kind_text(entry_kind kind)
{
    static constexpr std::array names{"file", "folder", "link", "other"};
    return names.at(static_cast<std::size_t>(kind));
}

std::string_view precision_text(time_precision precision)
{
    static constexpr std::array names{"day", "minute", "second"};
    return names.at(static_cast<std::size_t>(precision));
}

std::string hex(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return text;
}

std::uint64_t add_sizes(std::uint64_t one, std::uint64_t other)
{
    return one > std::numeric_limits<std::uint64_t>::max() - other ? std::numeric_limits<std::uint64_t>::max()
                                                                   : one + other;
}

std::string counted(std::uint64_t count, std::string_view what)
{
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

} // namespace qrftp::cli

#include "utc.hpp"

#include <array>
#include <chrono>
#include <cstdio>

namespace qrftp {

std::string utc_digits(std::int64_t seconds)
{
    using namespace std::chrono;
    const sys_seconds time{std::chrono::seconds(seconds)};
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    std::array<char, 32> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%04d%02u%02u%02d%02d%02d", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()));
    return {text.data(), static_cast<std::size_t>(length)};
}

} // namespace qrftp

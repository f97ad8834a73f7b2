#include "time_argument.hpp"

#include "settings.hpp"

#include <fmt/format.h>

#include <ctime>

namespace qrftp::cli {

std::chrono::sys_seconds parse_time(const std::string& text)
{
    const bool is_utc = text.ends_with('Z');
    const std::string local = text.substr(0, text.size() - (is_utc ? 1 : 0));
    for (const char* const form :
         {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%S"}) {
        std::tm fields{};
        fields.tm_isdst = -1;
        const char* const end = strptime(local.c_str(), form, &fields);
        if (end == nullptr || *end != '\0') {
            continue;
        }
        const int day = fields.tm_mday;
        const std::time_t seconds = is_utc ? timegm(&fields) : std::mktime(&fields);
        if (fields.tm_mday != day ||
            local.find('-') != 4) { // February 30 would be in March, and "24" in the year 24.
            break;
        }
        return std::chrono::sys_seconds(std::chrono::seconds(seconds));
    }
    throw usage_error(fmt::format(R"("{}" is no time: write 2024-05-01, or "2024-05-01 12:30".)", text));
}

} // namespace qrftp::cli

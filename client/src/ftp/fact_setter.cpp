#include "fact_setter.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp::ftp {

namespace {

using boost::algorithm::icontains;
using boost::algorithm::iequals;
using boost::algorithm::istarts_with;

/// "YYYYMMDDHHMMSS" in UTC (RFC 3659, 2.3); empty for a time that it cannot say.
std::string utc_digits(std::chrono::sys_seconds time)
{
    using namespace std::chrono;
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    const int year = static_cast<int>(date.year());
    if (year < 0 || year > 9999) {
        return {};
    }
    return fmt::format("{:04}{:02}{:02}{:02}{:02}{:02}", year, static_cast<unsigned>(date.month()),
                       static_cast<unsigned>(date.day()), clock.hours().count(), clock.minutes().count(),
                       clock.seconds().count());
}

} // namespace

bool has_feature(const server_info& info, std::string_view name)
{
    return std::any_of(info.features.begin(), info.features.end(), [&](std::string_view feature) {
        return iequals(feature.substr(0, feature.find(' ')), name);
    });
}

fact_setter::fact_setter(const server_info& info, std::string server, sender send, warning warn)
    : server_(std::move(server)), send_(std::move(send)), warn_(std::move(warn)),
      has_mfmt_(has_feature(info, "MFMT")),
      has_mode_fact_(std::any_of(info.features.begin(), info.features.end(), [](const std::string& feature) {
          return istarts_with(feature, "MFF ") && icontains(feature, "UNIX.mode");
      }))
{
}

void fact_setter::set(const std::string& path, const file_facts& facts)
{
    if (facts.mode) {
        set_mode(path, *facts.mode);
    }
    if (facts.modified) {
        set_time(path, *facts.modified);
    }
}

std::optional<reply> fact_setter::set_time(const std::string& path, std::chrono::sys_seconds time)
{
    const std::string digits = utc_digits(time);
    if (digits.empty() || (!has_mfmt_ && !tries_mdtm_)) {
        return std::nullopt;
    }
    reply answer = send_(path, fmt::format("{} {} {}", has_mfmt_ ? "MFMT" : "MDTM", digits, path));
    if (answer.is_completion()) {
        mdtm_works_ = !has_mfmt_;
        return answer;
    }
    const bool is_of_this_file = !answer.is_unknown_command() || answer.code == code::bad_arguments;
    if (has_mfmt_ ? is_of_this_file : mdtm_works_) {
        return answer;
    }
    // MFMT is advertised and missing; or MDTM takes the time for a part of the name.
    tries_mdtm_ = std::exchange(has_mfmt_, false);
    if (tries_mdtm_) {
        return set_time(path, time);
    }
    warn_(fmt::format("{} keeps no modification times: files that are sent there get the time of the transfer.",
                      server_));
    return std::nullopt;
}

std::optional<reply> fact_setter::set_mode(const std::string& path, std::filesystem::perms mode)
{
    const auto bits = static_cast<unsigned>(mode & std::filesystem::perms::mask);
    for (bool* const works : {&has_mode_fact_, &tries_chmod_}) {
        if (*works) {
            reply answer =
                send_(path, works == &has_mode_fact_ ? fmt::format("MFF UNIX.mode={:04o}; {}", bits, path)
                                                     : fmt::format("SITE CHMOD {:03o} {}", bits, path));
            *works = !answer.is_unknown_command();
            if (*works) {
                return answer;
            }
        }
    }
    return std::nullopt;
}

} // namespace qrftp::ftp

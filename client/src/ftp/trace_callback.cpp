#include "trace_callback.hpp"

#include "../library_info.hpp"
#include "../trace.hpp"

#include <zorbel/io/ftp/core/logger.hpp>

#include <fmt/format.h>

#include <string_view>

namespace qrftp::ftp {

namespace {

namespace level = zorbel::io::ftp::core::level;

bool is_logged()
{
    return zorbel::io::ftp::core::getLogger().is_enabled(level::info);
}

void trace_command(std::string_view line)
{
    const bool secret = line.starts_with("PASS ") || line.starts_with("ACCT ");
    trace_line(fmt::format("> {}", secret ? fmt::format("{}****", line.substr(0, 5)) : line));
}

/// libcurl's debug callback: one or more whole lines.
int on_trace(CURL* /*handle*/, curl_infotype type, char* data, std::size_t size, void* /*user*/) noexcept
try {
    std::string_view text(data, size);
    while (text.ends_with('\n') || text.ends_with('\r')) {
        text.remove_suffix(1);
    }
    if (text.starts_with("Proxy auth using")) {
        text = text.substr(0, text.find('\'')); // the user's name follows
    }
    if (type == CURLINFO_TEXT && is_logged()) {
        foundation::log::record(zorbel::io::ftp::core::getLogger(), level::info).stream() << "* " << text;
    } else if (type == CURLINFO_HEADER_OUT && is_traced(trace_level::dialogue)) {
        trace_command(text);
    } else if (type == CURLINFO_HEADER_IN && is_traced(trace_level::dialogue)) {
        trace_line(fmt::format("< {}", text));
    }
    return 0;
} catch (...) {
    return 0; // A line that is lost is no reason to stop a transfer.
}

} // namespace

void set_trace_callback(const curl_ptr& handle)
{
    setopt(handle, CURLOPT_DEBUGFUNCTION, &on_trace);
    setopt(handle, CURLOPT_VERBOSE, is_traced(trace_level::dialogue) || is_logged() ? 1L : 0L);
}

std::string library_versions()
{
    const curl_version_info_data& libcurl = *curl_version_info(CURLVERSION_NOW);
    return fmt::format("libcurl/{} {}", libcurl.version,
                       libcurl.ssl_version == nullptr ? "" : libcurl.ssl_version);
}

void trace_libraries(bool on)
{
    static foundation::log::level_mask before = 0;
    auto& logger = zorbel::io::ftp::core::getLogger();
    before = on ? logger.enabled_levels() : before;
    logger.enable_levels(on ? before | level::info : before);
}

} // namespace qrftp::ftp

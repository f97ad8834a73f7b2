#pragma once

#include <zorbel/io/ftp/core/request.hpp>

#include <string>
#include <utility>

namespace zorbel::io::ftp::core {

/// Sends `command` in a request at the current URL that transfers nothing, and captures the replies. `when` is
/// `CURLOPT_QUOTE` (before the change of folder) or `CURLOPT_PREQUOTE` (after it).
inline std::pair<CURLcode, std::string> request_command(curl_ptr& connection, CURLoption when,
                                                        const std::string& command)
{
    const slist commands(command);
    return scoped_request(connection)
        .setopt(CURLOPT_NOBODY, 1L, 0)
        .setopt(when, commands.get(), nullptr)
        .request_header();
}

} // namespace zorbel::io::ftp::core

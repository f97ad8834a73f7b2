#include "trace.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>
#include <zorbel/io/ftp/core/request.hpp>

#include <tuple>

namespace zorbel::io::ftp::core {

CURLcode unsafe_cd(curl_ptr& connection, const std::string& url)
{
    const scope_trace trace;
    set_option(connection, CURLOPT_URL, add_trailing_slash(url).c_str());
    CURLcode code = CURLE_OK;
    long reply = 0;
    {
        scoped_request request(connection);
        std::tie(code, reply) = request.setopt(CURLOPT_NOBODY, 1L, 0).perform();
    }
    log(level::info, "unsafe_cd on path \"", url, "\" returned curl code: ", static_cast<long>(code),
        " and reply code: ", reply);
    return code;
}

std::string cd(curl_ptr& connection, const std::string& url)
{
    const scope_trace trace;
    const std::string previous_url = current_remote_url(connection);
    if (unsafe_cd(connection, url) == CURLE_OK) {
        return pwd(connection);
    }
    unsafe_cd(connection, previous_url); // If that fails too, the error to report is still the first.
    foundation::core::except::raise<ZORBEL::io::ftp::ftp::NoSuchDirectory>(url);
}

} // namespace zorbel::io::ftp::core

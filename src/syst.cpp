#include "trace.hpp"

#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/request.hpp>

#include <tuple>

namespace zorbel::io::ftp::core {

std::string syst(curl_ptr& connection)
{
    const scope_trace trace;
    const slist commands("SYST");
    CURLcode code = CURLE_OK;
    std::string replies;
    {
        scoped_request request(connection);
        std::tie(code, replies) = request.setopt(CURLOPT_NOBODY, 1L, 0)
                                      .setopt(CURLOPT_PREQUOTE, commands.get(), nullptr)
                                      .request_header();
    }
    log(level::message, "SYST response code: ", static_cast<long>(code));
    log(level::message, "SYST response text: ", replies);
    return code == CURLE_OK ? replies : std::string();
}

} // namespace zorbel::io::ftp::core

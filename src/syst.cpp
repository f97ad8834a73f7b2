#include "command.hpp"
#include "trace.hpp"

#include <zorbel/io/ftp/core/navigation.hpp>

namespace zorbel::io::ftp::core {

std::string syst(curl_ptr& connection)
{
    const scope_trace trace;
    const auto [code, replies] = request_command(connection, CURLOPT_PREQUOTE, "SYST");
    log(level::message, "SYST response code: ", static_cast<long>(code));
    log(level::message, "SYST response text: ", replies);
    return code == CURLE_OK ? replies : std::string();
}

} // namespace zorbel::io::ftp::core

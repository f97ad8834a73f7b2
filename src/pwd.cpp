#include "command.hpp"
#include "trace.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>

#include <boost/algorithm/string/replace.hpp>

namespace zorbel::io::ftp::core {

namespace {

[[noreturn]] void fail(const std::string& reason)
{
    foundation::core::except::raise<ZORBEL::io::ftp::ftp::InternalError>("PWD", reason);
}

} // namespace

std::string current_remote_url(curl_ptr& connection)
{
    const scope_trace trace;
    connection.throw_if_null();
    const char* url = nullptr;
    curl_easy_getinfo(connection.get(), CURLINFO_EFFECTIVE_URL, &url);
    return url == nullptr ? std::string() : std::string(url);
}

std::optional<std::string> match_response_code(const std::string& responses, const std::string& code)
{
    const scope_trace trace;
    if (code.empty()) {
        return std::nullopt;
    }
    for (const std::string_view line : split_string(responses, "\r\n")) {
        if (line.starts_with(code)) {
            return std::string(line);
        }
    }
    return std::nullopt;
}

std::string parse_pwd_response(const std::string& line)
{
    const scope_trace trace;
    if (line.size() < 3) {
        fail("PWD response code is too short");
    }
    if (!line.starts_with("257")) {
        fail("PWD operation failed or returned unrecognized status code (" + line.substr(0, 3) +
             ") from response: " + line);
    }
    const std::size_t opening = line.find('"');
    if (opening == std::string::npos) {
        fail("Could not find opening quote in PWD response: " + line);
    }
    const std::size_t closing = line.rfind('"');
    if (closing == opening) {
        fail("Could not find closing quote in PWD response: " + line);
    }
    return boost::replace_all_copy(line.substr(opening + 1, closing - opening - 1), "//", "/");
}

std::string pwd(curl_ptr& connection)
{
    const scope_trace trace;
    const auto [code, replies] = request_command(connection, CURLOPT_QUOTE, "PWD");
    if (code != CURLE_OK) {
        fail("Could not get PWD response");
    }
    log(level::message, "PWD response code: ", static_cast<long>(code));
    log(level::message, "PWD response text: ", replies);
    const auto line = match_response_code(replies, "257");
    if (!line) {
        fail("Could not match any server responses to the PWD command: " + replies);
    }
    std::string folder = parse_pwd_response(*line);
    if (folder.find_first_not_of('/') == std::string::npos) {
        folder = "/";
    }
    log(level::message, "PWD parsed as: ", folder);
    return folder;
}

} // namespace zorbel::io::ftp::core

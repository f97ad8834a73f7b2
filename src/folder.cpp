#include "command.hpp"
#include "trace.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/folders.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>
#include <zorbel/io/ftp/core/request.hpp>

#include <array>
#include <cstdio>
#include <tuple>
#include <utility>

namespace zorbel::io::ftp::core {

using foundation::core::except::raise;
using namespace ZORBEL::io::ftp::ftp;

namespace {

/// Sends `commands` at the URL of the folder `path`.
std::pair<CURLcode, long> request_at_folder(curl_ptr& connection, slist commands, const std::string& path)
{
    const std::string url = add_trailing_slash(fullurl(connection, path, false));
    return scoped_request(connection).request_quoted(url, std::move(commands));
}

std::string quoted(const std::string& name)
{
    return '"' + name + '"'; // A double quote in the name is not escaped.
}

/// Tells the user of the process what libcurl says of `code`, in the form of libcurl's own examples.
void print_curl_error(CURLcode code, const char* detail)
{
    (void)std::fprintf(stderr, "\nlibcurl: (%d) ", static_cast<int>(code));
    const std::string_view text(detail);
    if (text.empty()) {
        (void)std::fprintf(stderr, "%s\n", curl_easy_strerror(code));
    } else {
        (void)std::fprintf(stderr, "%s%s", detail, text.ends_with('\n') ? "" : "\n");
    }
}

/// The body that `command` brings on the connection's current URL.
std::string request_listing(curl_ptr& connection, const std::string& command)
{
    CURLcode code = CURLE_OK;
    std::string body;
    {
        scoped_request request(connection);
        std::tie(code, body) = request.setopt(CURLOPT_CUSTOMREQUEST, command.c_str(), nullptr).request_body();
    }
    log(level::message, "Received code: ", static_cast<long>(code), " for list command: ", command);
    log(level::message, "Listing contents: ", body);
    return body;
}

} // namespace

long last_response_code(curl_ptr& connection)
{
    long response_code = 0;
    scope_trace trace(2);
    connection.throw_if_null();
    trace.add_value("response_code", response_code);
    curl_easy_getinfo(connection.get(), CURLINFO_RESPONSE_CODE, &response_code);
    return response_code;
}

std::vector<std::string_view> split_string(std::string_view text, std::string_view delimiter)
{
    if (text.empty() || delimiter.empty()) {
        return {text};
    }
    std::vector<std::string_view> pieces;
    std::size_t begin = 0;
    for (std::size_t end = text.find(delimiter); end != std::string_view::npos;
         end = text.find(delimiter, begin)) {
        pieces.push_back(text.substr(begin, end - begin));
        begin = end + delimiter.size();
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

std::string list(curl_ptr& connection, const std::string& path)
{
    const scope_trace trace;
    return request_listing(connection, "LIST " + path);
}

std::string nlst(curl_ptr& connection, const std::string& path)
{
    const scope_trace trace;
    return request_listing(connection, "NLST " + path);
}

std::vector<std::string_view> parse_nlst_listing(const std::string& listing)
{
    const scope_trace trace;
    return split_string(listing, "\n");
}

std::vector<std::string> dir(curl_ptr& connection, const std::string& path)
{
    const scope_trace trace;
    const std::string listing = nlst(connection, path);
    std::vector<std::string> names;
    for (const std::string_view line : parse_nlst_listing(listing)) {
        if (!line.empty()) {
            names.emplace_back(line);
        }
    }
    return names;
}

bool is_folder(curl_ptr& connection, const std::string& path)
{
    const scope_trace trace;
    const std::string url = fullurl(connection, path, false);
    try {
        const std::string previous_url = current_remote_url(connection);
        cd(connection, url);
        unsafe_cd(connection, previous_url);
        return true;
    } catch (...) {
        return false; // Whatever went wrong, nobody got in, or nobody got back.
    }
}

std::pair<CURLcode, std::string> sftp_is_folder(curl_ptr& connection, const std::string& path,
                                                bool already_encoded)
{
    const scope_trace trace;
    const std::string url = fullurl(connection, path, already_encoded);
    scoped_request request(connection);
    // Put back to off rather than to what it was: connections with a starting folder list in long form.
    return request.seturl(url).setopt(CURLOPT_DIRLISTONLY, 0L, 0).request_body();
}

void create_folder(curl_ptr& connection, const std::string& name)
{
    const scope_trace trace;
    const auto [code, reply] = request_at_folder(connection, slist("MKD " + name), name);
    if (code == CURLE_OK) {
        return;
    }
    if (reply == 550) {
        raise<CouldNotCreateFolder>(name);
    }
    raise<InternalError>("mkdir", name);
}

void sftp_create_folder(curl_ptr& connection, const std::string& name)
{
    const scope_trace trace;
    // Neither the working folder nor the folder's URL is used: both are asked for, so that a connection that
    // cannot tell where it stands fails here.
    pwd(connection);
    const std::string path = fullfile(connection, percent_encode_path(connection, name));
    add_trailing_slash(fullurl(connection, path, false));
    if (request_command(connection, CURLOPT_QUOTE, "mkdir " + quoted(name)).first != CURLE_OK) {
        raise<CouldNotCreateFolder>(name);
    }
}

void delete_folder(curl_ptr& connection, const std::string& name)
{
    const scope_trace trace;
    const auto [code, reply] = request_at_folder(connection, slist("RMD " + name), name);
    if (code == CURLE_OK) {
        return;
    }
    if (reply == 550) {
        raise<FolderNotEmpty>(name);
    }
    raise<FTPError>(reply);
}

void sftp_delete_folder(curl_ptr& connection, const std::string& name)
{
    const scope_trace trace;
    const std::string path = fullfile(connection, percent_encode_path(connection, name));
    slist commands("rmdir " + quoted(name));
    // The path is encoded already and is encoded once more on its way into the URL.
    const std::string url = add_trailing_slash(fullurl(connection, path, false));
    std::array<char, CURL_ERROR_SIZE> error{};
    CURLcode code = CURLE_OK;
    long reply = 0;
    {
        scoped_request request(connection);
        std::tie(code, reply) =
            request.setopt(CURLOPT_ERRORBUFFER, error.data(), nullptr).request_quoted(url, std::move(commands));
    }
    if (code == CURLE_OK) {
        return;
    }
    print_curl_error(code, error.data());
    if (reply == 550) {
        raise<RemoveFolderFailed>(name);
    }
    raise<FTPError>(reply);
}

} // namespace zorbel::io::ftp::core

#include "trace.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>

#include <memory>
#include <string>

namespace zorbel::io::ftp::core {

using foundation::core::except::raise;
using ZORBEL::io::ftp::ftp::InternalError;

namespace {

using curl_text = std::unique_ptr<char, decltype(&curl_free)>;

/// The length of `text` as libcurl's escaping functions take it.
int escapable_length(const std::string& text)
{
    if (text.size() >= 2147483648U) {
        // Decoding says "Percent Encoding" too.
        raise<InternalError>("Percent Encoding", "Exceeded maximum string length");
    }
    return static_cast<int>(text.size());
}

} // namespace

std::string add_trailing_slash(const std::string& text)
{
    return text.empty() || text.back() == '/' ? text : text + '/';
}

std::string percent_encode(curl_ptr& connection, const std::string& text)
{
    const int length = escapable_length(text);
    const curl_text encoded(curl_easy_escape(connection.get(), text.c_str(), length), &curl_free);
    return encoded.get(); // The string refuses null, which libcurl may give for a long text.
}

std::string percent_encode_path(curl_ptr& connection, const std::string& path)
{
    const scope_trace trace;
    auto segments = split_string(path, "/");
    if (segments.back().empty()) {
        segments.pop_back(); // A final "/" ends the last segment; it does not begin another.
    }
    std::string encoded;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        encoded += (i == 0 ? "" : "/") + percent_encode(connection, std::string(segments[i]));
    }
    return path.ends_with('/') ? encoded + '/' : encoded;
}

std::string percent_decode(curl_ptr& connection, const std::string& text)
{
    const int length = escapable_length(text);
    int decoded_length = 0;
    const curl_text decoded(curl_easy_unescape(connection.get(), text.c_str(), length, &decoded_length),
                            &curl_free);
    if (decoded_length < 0) {
        raise<InternalError>("Percent Decoding", "Allocation failure");
    }
    return decoded == nullptr ? std::string()
                              : std::string(decoded.get(), static_cast<std::size_t>(decoded_length));
}

std::string make_absolute_url(curl_ptr& connection, const std::string& base, const std::string& path,
                              bool already_encoded)
{
    const scope_trace trace;
    const std::string absolute = path.starts_with('/') ? path : "/";
    const std::size_t scheme_end = base.find("://");
    if (scheme_end == std::string::npos) {
        raise<InternalError>("URL Generation", "Couldn't find URL scheme");
    }
    const std::string server = base.substr(0, base.find('/', scheme_end + 3));
    const std::string encoded = already_encoded ? absolute : percent_encode_path(connection, absolute);
    // On FTP the empty first segment makes the path absolute; without it the path is below the login folder.
    return base.starts_with("sftp://") ? server + encoded : add_trailing_slash(server) + encoded;
}

std::string fullurl(curl_ptr& connection, const std::string& path, bool already_encoded)
{
    const scope_trace trace;
    std::string location = current_remote_url(connection);
    if (path.empty()) {
        return location;
    }
    if (path.starts_with('/')) {
        return make_absolute_url(connection, location, path, already_encoded);
    }
    return add_trailing_slash(location) + (already_encoded ? path : percent_encode_path(connection, path));
}

std::string fullfile(curl_ptr& connection, const std::string& path)
{
    const scope_trace trace;
    return path.starts_with('/') ? path : add_trailing_slash(pwd(connection)) + path;
}

} // namespace zorbel::io::ftp::core

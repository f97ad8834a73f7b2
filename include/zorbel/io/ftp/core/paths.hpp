#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <string>
#include <string_view>
#include <vector>

/// String rules that turn paths into percent-encoded URLs on the connection's server. None of them sends
/// anything or changes an option; paths are bytes and are passed through as they are. `already_encoded` says
/// that a path is percent-encoded and is to be used as it stands.
namespace zorbel::io::ftp::core {

/// `text` with a final "/"; empty text stays empty.
QRFTPCORE_EXPORT std::string add_trailing_slash(const std::string& text);

/// `text` with every byte percent-encoded but letters, digits and "-._~" (the unreserved characters of RFC
/// 3986, 2.3); "/" is encoded too. Throws `InternalError` ("Percent Encoding", …) for 2^31 bytes or more, and
/// the standard library's `std::logic_error` when libcurl gives no text: without memory, and libcurl 7.88 for a
/// result of 24,000,000 bytes or more.
QRFTPCORE_EXPORT std::string percent_encode(curl_ptr& connection, const std::string& text);

/// `path` with each segment percent-encoded and every "/" kept, leading, doubled and final ones too. Throws as
/// `percent_encode` does, for a segment.
QRFTPCORE_EXPORT std::string percent_encode_path(curl_ptr& connection, const std::string& path);

/// The decoded bytes, which may hold NUL. Throws `InternalError`, ("Percent Encoding", …) for 2^31 bytes or
/// more, ("Percent Decoding", …) when libcurl reports a negative length.
QRFTPCORE_EXPORT std::string percent_decode(curl_ptr& connection, const std::string& text);

/// The URL of the absolute path `path` on the server of the URL `base`, whose own path is dropped. A path that
/// is empty or relative stands for the server's root. On SFTP ("sftp://" exactly) the path follows the server;
/// on every other scheme after one more "/", which makes it absolute rather than relative to the login folder.
/// Throws `InternalError` ("URL Generation", …) when `base` has no "://".
QRFTPCORE_EXPORT std::string make_absolute_url(curl_ptr& connection, const std::string& base,
                                               const std::string& path, bool already_encoded);

/// The URL of `path` as seen from the connection's current folder: that folder's for an empty path, else as
/// `make_absolute_url` for an absolute one, else below the current folder. Throws as these do.
QRFTPCORE_EXPORT std::string fullurl(curl_ptr& connection, const std::string& path, bool already_encoded);

/// The pieces of `text` between the occurrences of `delimiter`, empty ones included, also behind a final
/// delimiter. Views into `text`, which the caller keeps alive. An empty text or delimiter gives one piece,
/// `text`.
QRFTPCORE_EXPORT std::vector<std::string_view> split_string(std::string_view text, std::string_view delimiter);

} // namespace zorbel::io::ftp::core

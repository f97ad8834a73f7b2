#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <optional>
#include <string>

namespace zorbel::io::ftp::core {

/// Changes the current folder to `url`, the complete URL of a folder (`fullurl` makes one of a path; a final
/// slash is optional), and returns the working folder that the server then reports, a plain path.
///
/// FTP: one CWD per segment of the path, then PWD. SFTP: the folder itself is not checked, so a missing one is
/// entered without an error; then libcurl's own `pwd`.
///
/// Throws `NoSuchDirectory` with `url` after any failed change, whatever its cause; the connection then stands
/// in the folder it came from, as far as the server lets it go back. Throws what `pwd` throws when the change
/// itself succeeded, and `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string cd(curl_ptr& connection, const std::string& url);

/// The server's working folder, a plain path as the server words it, or "/". Sends PWD (RFC 959, 4.1.3), on
/// SFTP libcurl's own quote command `pwd`. Changes nothing.
///
/// Throws `InternalError` with "PWD" and the reason when the request fails or the reply cannot be read, and
/// `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string pwd(curl_ptr& connection);

/// The folder between the first and the last double quote of one 257 reply line (RFC 959, appendix II). Doubled
/// quotes inside it stay doubled; "//" becomes "/" in one pass. Sends nothing.
///
/// Throws `InternalError` with "PWD" and the reason: too short, another code, a missing quote.
QRFTPCORE_EXPORT std::string parse_pwd_response(const std::string& line);

/// The first of the CR LF separated lines of `responses` that begins with `code`, whole; none when there is no
/// such line or `code` is empty. A continuation line ("257-") matches too. Sends nothing.
QRFTPCORE_EXPORT std::optional<std::string> match_response_code(const std::string& responses,
                                                                const std::string& code);

/// The replies of the server to a request that sends SYST (RFC 959, 4.1.3), as received and unparsed. Changes
/// nothing. A failed request is not an error: the text is then empty. SFTP has no such command: libcurl refuses
/// it, or does not send it.
///
/// Throws `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string syst(curl_ptr& connection);

/// `path` as an absolute remote path: unchanged when it begins with "/"; else the working folder, "/", and
/// `path`, for which the server is asked each time (`pwd`, whose errors pass through).
QRFTPCORE_EXPORT std::string fullfile(curl_ptr& connection, const std::string& path);

} // namespace zorbel::io::ftp::core

#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorbel::io::ftp::core {

/// The body that the server sends for "LIST " followed by `path` (RFC 959, 4.1.3), unchanged: its own long
/// form, lines ended as it ends them. `path` goes into the command as it stands; empty still sends the blank.
/// On SFTP the current folder is listed, whatever `path` says, in long form or as names only as the connection
/// stands.
///
/// A failed transfer is not an error: the body so far, often none, is returned, and only the log (level 4)
/// tells. Changes nothing. Throws `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string list(curl_ptr& connection, const std::string& path);

/// As `list`, with "NLST ": names, one a line.
QRFTPCORE_EXPORT std::string nlst(curl_ptr& connection, const std::string& path);

/// The lines of `nlst`'s body that are not empty, in the server's order. Nothing else is dropped or trimmed: a
/// CR before the line feed stays, and so do "." and ".." where the server sends them.
QRFTPCORE_EXPORT std::vector<std::string> dir(curl_ptr& connection, const std::string& path);

/// The pieces of `listing` between its line feeds, empty ones included. Views into `listing`, which the caller
/// keeps alive. Sends nothing.
QRFTPCORE_EXPORT std::vector<std::string_view> parse_nlst_listing(const std::string& listing);

/// Whether the raw path `path`, absolute or relative to the current folder, can be entered. FTP: changes folder
/// to it (CWD per segment, PWD) and back (CWD per segment). On SFTP the answer is always yes while the server
/// answers, since a change of folder checks nothing there; `sftp_is_folder` asks.
///
/// Every failure of the probe reads as no: a file, a missing path, a refusal, a lost connection. The connection
/// ends in the folder it began in; if going back fails, it may be left in the probed one. Throws what `fullurl`
/// throws.
QRFTPCORE_EXPORT bool is_folder(curl_ptr& connection, const std::string& path);

/// Lists `path` over SFTP and hands the outcome back: libcurl's result code and the body. A code of 0 for a
/// path that ends in "/" says that it is a folder; without the "/" it is fetched as a file. The names-only
/// switch of listings
/// (`CURLOPT_DIRLISTONLY`) is off afterwards, whatever it was.
///
/// A failed request is not an error. Throws what `fullurl` throws.
QRFTPCORE_EXPORT std::pair<CURLcode, std::string> sftp_is_folder(curl_ptr& connection, const std::string& path,
                                                                 bool already_encoded);

} // namespace zorbel::io::ftp::core

#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorbel::io::ftp::core {

/// The body that the server sends for "LIST " followed by `path` (RFC 959, 4.1.3), as libcurl delivers it: the
/// server's own long form, on FTP with CR LF turned into line feeds. `path` goes into the command as it stands;
/// empty still sends the blank. On SFTP the current folder is listed, whatever `path` says, in long form or as
/// names only as the connection stands.
///
/// A failed transfer is not an error: the body so far, often none, is returned, and only the log (level 4)
/// tells. Changes nothing. Throws `InvalidCurlHandle`.
QRFTPCORE_EXPORT std::string list(curl_ptr& connection, const std::string& path);

/// As `list`, with "NLST ": names, one a line.
QRFTPCORE_EXPORT std::string nlst(curl_ptr& connection, const std::string& path);

/// The lines of `nlst`'s body that are not empty, in the server's order. Nothing else is dropped or trimmed: a
/// CR that is left in a line stays, and so do "." and ".." where the server sends them.
QRFTPCORE_EXPORT std::vector<std::string> dir(curl_ptr& connection, const std::string& path);

/// The pieces of `listing` between its line feeds, empty ones included. Views into `listing`, which the caller
/// keeps alive. Sends nothing.
QRFTPCORE_EXPORT std::vector<std::string_view> parse_nlst_listing(const std::string& listing);

/// Whether the raw path `path`, absolute or relative to the current folder, can be entered. FTP: changes folder
/// to it (CWD per segment, PWD) and back (CWD per segment). On SFTP the answer is always yes while the server
/// answers, since a change of folder checks nothing there; `sftp_is_folder` asks.
///
/// Every failure of the probe reads as no: a file, a missing path, a refusal, a lost connection. The connection
/// ends in the folder it began in; if PWD or going back fails, it may be left in the probed one. Throws what
/// `fullurl` throws.
QRFTPCORE_EXPORT bool is_folder(curl_ptr& connection, const std::string& path);

/// Lists `path` over SFTP and hands the outcome back: libcurl's result code and the body. A code of 0 for a
/// path that ends in "/" says that it is a folder; without the "/" it is fetched as a file. The names-only
/// switch of listings
/// (`CURLOPT_DIRLISTONLY`) is off afterwards, whatever it was.
///
/// A failed request is not an error. Throws what `fullurl` throws.
QRFTPCORE_EXPORT std::pair<CURLcode, std::string> sftp_is_folder(curl_ptr& connection, const std::string& path,
                                                                 bool already_encoded);

/// Makes the folder `name` on FTP. Sends "MKD " followed by `name` (RFC 959, 4.1.3) as it stands: a relative
/// name is resolved by the server against the folder that the control connection is in. After a
/// reconnect that is the login folder, and CWD to the current one follows. There is no check beforehand: a
/// folder that exists is a refusal.
///
/// Throws `CouldNotCreateFolder` with the name when the server answers 550; `InternalError` ("mkdir", name)
/// after any other failure; what `fullurl` throws; `InvalidCurlHandle`.
QRFTPCORE_EXPORT void create_folder(curl_ptr& connection, const std::string& name);

/// Makes the folder `name` on SFTP: libcurl's quote commands `pwd`, twice, whose answers are not used, and
/// `mkdir` with the name between double quotes, otherwise as it stands. A relative name is resolved against the
/// login folder.
///
/// Throws `CouldNotCreateFolder` with the name after any failure of the `mkdir`; what `pwd` and `fullurl`
/// throw; `InvalidCurlHandle`.
QRFTPCORE_EXPORT void sftp_create_folder(curl_ptr& connection, const std::string& name);

/// Removes the empty folder `name` on FTP. Sends "RMD " followed by `name` (RFC 959, 4.1.3) as it stands;
/// after a reconnect CWD to the current folder follows.
///
/// Throws `FolderNotEmpty` with the name when the server answers 550, for whatever reason (a missing folder
/// gives the same answer); `FTPError` with the reply code after any other failure; what `fullurl` throws;
/// `InvalidCurlHandle`.
QRFTPCORE_EXPORT void delete_folder(curl_ptr& connection, const std::string& name);

/// Removes the empty folder `name` on SFTP: libcurl's quote commands `pwd` (for a relative name) and `rmdir`
/// with the name between double quotes, otherwise as it stands. A relative name is resolved against the login
/// folder.
///
/// On failure libcurl's message goes to standard error, and then it throws `RemoveFolderFailed` with the name
/// (reply code 550) or `FTPError` with the reply code (any other; SFTP's own codes are no reply codes). Throws
/// what `pwd` and `fullurl` throw; `InvalidCurlHandle`.
QRFTPCORE_EXPORT void sftp_delete_folder(curl_ptr& connection, const std::string& name);

} // namespace zorbel::io::ftp::core

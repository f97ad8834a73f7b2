#pragma once

#include <fl/ustring.hpp>
#include <zorbel/io/ftp/core/connection.hpp>

namespace zorbel::io::ftp::core {

/// Copies the remote file `remote_name`, resolved against the current folder, into the local file `local_path`.
/// FTP: CWD to its folder, EPSV or PASV, TYPE, RETR, then CWD back to the current folder. SFTP: open, read,
/// close. `text_mode` asks for TYPE A and line-end conversion. The file streams: none of it is held in memory.
///
/// The local file is opened, and emptied, before anything is sent. After a failure it stays, with what arrived.
/// The connection is left as it was, whether the call returns or throws.
///
/// Throws, before any request, `InvalidText` (a name that is not UTF-16) and the local file layer's errors when
/// the file cannot be opened; the local file layer's error when it cannot be closed, rather than any other;
/// `FileUnavailable` with the name when the last reply was 550; `FTPError` with the last reply code after any
/// other failure, a local write error among them; `InvalidCurlHandle`.
QRFTPCORE_EXPORT void receive_file(curl_ptr& connection, const fl::ustring& remote_name,
                                   const fl::ustring& local_path, bool text_mode);

/// Copies the local file `local_path` into the remote file `remote_name`, resolved against the current folder,
/// which is created or replaced. FTP: CWD to its folder, EPSV or PASV, TYPE, STOR, then CWD back to the current
/// folder. SFTP: open, write, close. The size is taken from the file's attributes beforehand; the file streams.
///
/// After a failure the part that arrived stays on the server. The connection is left as it was, whether the
/// call returns or throws.
///
/// Throws, before any request, `InvalidText` (a name that is not UTF-16), `PermissionDenied` and `NotFound`
/// (missing, or unusable for another reason, which the log tells at level 8) with the local path; the local
/// file layer's error when it cannot be closed; `UploadFailed` with the local path after every failed transfer;
/// `InvalidCurlHandle`.
QRFTPCORE_EXPORT void send_file(curl_ptr& connection, const fl::ustring& local_path,
                                const fl::ustring& remote_name, bool text_mode);

} // namespace zorbel::io::ftp::core

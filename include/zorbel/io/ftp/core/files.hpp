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

/// Renames a file on FTP. Sends "RNFR " and "RNTO " (RFC 959, 4.1.3), each followed by its name as it stands:
/// relative names are resolved by the server against the folder that the control connection is in.
///
/// Throws `FTPError` with the reply code when that lies in 500 to 553. Any other outcome is not an error: a 4xx
/// or a 554 reply, or no reply at all. Throws `InvalidText` before any request; `InvalidCurlHandle`.
QRFTPCORE_EXPORT void rename_remote_file(curl_ptr& connection, const fl::ustring& old_name,
                                         const fl::ustring& new_name);

/// Renames a file on SFTP: libcurl's quote commands `pwd` (for each relative name) and `rename` with both
/// absolute paths between double quotes. The outcome is judged as by `rename_remote_file`; since SFTP has no
/// reply codes in that range, a refusal is not seen. Throws also what `fullfile` throws.
QRFTPCORE_EXPORT void sftp_rename_remote_file(curl_ptr& connection, const fl::ustring& old_name,
                                              const fl::ustring& new_name);

/// Deletes a file on FTP. Sends "DELE " (RFC 959, 4.1.3) followed by the name as it stands: a relative name is
/// resolved by the server against the folder that the control connection is in.
///
/// Throws `DeleteFailed` with the name in UTF-8 after any failure; what `fullurl` throws; `InvalidText` before
/// any request; `InvalidCurlHandle`.
QRFTPCORE_EXPORT void delete_remote_file(curl_ptr& connection, const fl::ustring& name);

/// Deletes a file on SFTP: libcurl's quote commands `pwd` (for a relative name) and `rm` with the absolute path
/// between double quotes. Throws as `delete_remote_file`, and what `fullfile` throws.
QRFTPCORE_EXPORT void sftp_delete_remote_file(curl_ptr& connection, const fl::ustring& name);

/// Whether the remote name is that of a file, as far as libcurl's quote command `statvfs` tells: yes when it
/// succeeds, which it does on SFTP servers that know the command, for any name that exists. When it ends in a
/// quote error or after 20 seconds, the answer is whether the current folder can still be reached (FTP: MDTM or
/// nothing but CWD), so that on FTP it is yes for every name. A limit that `transfer_timeout` set is off
/// afterwards.
///
/// Throws `FTPError` with libcurl's result code when the first request ends in any other way; `InvalidText`
/// before any request; `InvalidCurlHandle`.
QRFTPCORE_EXPORT bool is_file(curl_ptr& connection, const fl::ustring& name);

} // namespace zorbel::io::ftp::core

#pragma once

#include <qrftp/checksum.hpp>
#include <qrftp/disk_space.hpp>
#include <qrftp/entry.hpp>
#include <qrftp/error.hpp>
#include <qrftp/file.hpp>
#include <qrftp/listing.hpp>
#include <qrftp/options.hpp>
#include <qrftp/server_info.hpp>
#include <qrftp/transfer.hpp>
#include <qrftp/url.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp {

/// A login on one FTP or SFTP server, with a working folder.
///
/// Remote names are bytes. A relative one is seen from the working folder, which this object keeps: the server
/// only ever gets absolute names. "." and ".." segments are resolved before anything is sent.
///
/// One thread at a time; several objects side by side. Callbacks must not use the session that calls them. A
/// session that was closed or moved from throws `Closed` from every member but `close`, assignment and
/// destruction.
///
/// Every member that names something throws `InvalidName`, before anything is sent, for a name that the
/// protocol cannot carry: with NUL; over FTP with CR, LF or the byte 255. Every request may throw
/// `ConnectionLost`, `Timeout`, `ProtocolError`, `Cancelled` and, when it had to reconnect, what the
/// constructor throws. A connection that was lost is opened again, and a request that can be repeated (or was
/// certainly not carried out) is repeated, once.
class QRFTPCLIENT_EXPORT session {
public:
    /// Connects and logs in. FTP: AUTH TLS, USER, PASS, PBSZ, PROT, PWD, FEAT. SFTP: version 3. The
    /// path of `server` is not looked at; the working folder is that of the login.
    ///
    /// Throws `InvalidUrl`, `InvalidName`, `InvalidOption`, `NoConnection`, `NoEncryption`,
    /// `CertificateRefused`, `HostKeyUnknown`, `HostKeyChanged`, `HostKeyRevoked`, `LoginRefused`,
    /// `LocalFileError` (a key, certificate or configuration file that cannot be read).
    explicit session(const url& server, session_options options = {});
    explicit session(std::string_view server, session_options options = {});
    session(session&& other) noexcept;
    session& operator=(session&& other) noexcept;
    session(const session&) = delete;
    session& operator=(const session&) = delete;
    ~session();

    /// Ends the connection; a second call does nothing. FTP: QUIT, whose answer is waited for, up to the stall
    /// timeout, as in the destructor.
    void close() noexcept;

    /// Another login like this one, in the same working folder. Throws what the constructor throws.
    [[nodiscard]] session clone() const;

    [[nodiscard]] const url& location() const;

    /// What the server told of itself. Makes one request for the round trip. FTP: NOOP. SFTP: REALPATH.
    [[nodiscard]] qrftp::server_info server_info();

    /// Sends nothing but, over SFTP, REALPATH when the login folder is needed for the first time.
    [[nodiscard]] const std::string& working_folder() const;
    /// The absolute form of `path`, without "." and ".." segments. Sends what `working_folder` sends.
    [[nodiscard]] std::string absolute(const std::string& path) const;
    /// FTP: CWD there and back to the login folder. SFTP: STAT of its ".", which only those may ask who may
    /// enter it, as far as the server tells. Returns the new working folder. Throws `NotFound`, `NotFolder`,
    /// `PermissionDenied`; the working folder is then the old one.
    std::string change_folder(const std::string& path);

    /// What is at `path`, or nothing. FTP: MLST, and the parent folder's listing where it says no; without
    /// MLST, CWD, SIZE and MDTM come first. SFTP: LSTAT. A link is not followed, unless the server does so in
    /// its answer to MLST. The name in the answer is the last one of `path`, "/" for the root.
    [[nodiscard]] std::optional<entry> find(const std::string& path);
    /// `find`, throwing `NotFound`. Of a link also its target: SFTP: READLINK; FTP: LIST of its folder.
    [[nodiscard]] entry stat(const std::string& path);
    [[nodiscard]] bool exists(const std::string& path);
    /// Whether there is a folder, or a link to one.
    [[nodiscard]] bool is_folder(const std::string& path);
    /// Whether there is something else, or a link to something else.
    [[nodiscard]] bool is_file(const std::string& path);
    /// How many bytes a file has, a link's target too; empty when the server does not tell. FTP: SIZE. SFTP:
    /// STAT.
    [[nodiscard]] std::optional<std::uint64_t> file_size(const std::string& path);
    /// The modification time of a file to the second; empty when the server does not tell. FTP: MDTM. SFTP:
    /// STAT.
    [[nodiscard]] std::optional<timestamp> modification_time(const std::string& path);

    /// How the server computes checksums. FTP: what FEAT told. SFTP: asks once with check-file-name. Throws
    /// `NotSupported`.
    [[nodiscard]] checksum_method checksum_support();
    /// The checksum of a file, computed by the server. FTP: HASH after OPTS HASH, else XSHA256, XSHA1, XMD5,
    /// XCRC. SFTP: check-file-name. Throws `NotSupported`, `NotFound`, `PermissionDenied`, `IsFolder`.
    [[nodiscard]] qrftp::checksum checksum(const std::string& path);

    /// Gives the entries of a folder to `on_entry` while they arrive, and each line that cannot be read to
    /// `on_skipped`. FTP: MLSD, else LIST. SFTP: OPENDIR, READDIR. A request of which something was given away
    /// is not repeated. Throws `NotFound`, `NotFolder`, `PermissionDenied`, `IncompleteListing`.
    void list(const std::string& path, const std::function<void(entry&&)>& on_entry,
              const std::function<void(std::string_view)>& on_skipped = {});
    /// All of them, in the order of their names.
    [[nodiscard]] listing list(const std::string& path = ".");

    /// Puts the names of users and groups in the place of their numbers in `entries`, as far as the server has
    /// them. FTP: sends nothing, since listings have names. SFTP: users-groups-by-id@openssh.com, many at a
    /// time and each once.
    void name_owners(std::span<entry> entries);

    /// MKD (SFTP: MKDIR). With `parents`, makes what is missing above as well, and a folder that exists is no
    /// error. Throws `AlreadyExists`, `NotFound` (the parent), `PermissionDenied`; `ConnectionLost` where
    /// nobody can say after a break whose folder is there.
    void make_folder(const std::string& path, bool parents = false);
    /// RMD (SFTP: RMDIR). With `recursive`, removes what is in it first; links are removed, not followed.
    /// Throws `NotEmpty`, `NotFound`, `NotFolder`, `PermissionDenied`; the last one, before anything is sent,
    /// for `recursive` with the folder of the login, the working folder, or one that holds either, as the root
    /// does.
    void remove_folder(const std::string& path, bool recursive = false);
    /// DELE (SFTP: REMOVE). Throws `NotFound`, `IsFolder`, `PermissionDenied`.
    void remove_file(const std::string& path);
    /// RNFR, RNTO (SFTP: posix-rename@openssh.com, else RENAME). Where something has the new name: without
    /// `replace` throws `AlreadyExists`; with it, a file is replaced. A server that does not replace by itself
    /// gets the old file moved aside first, and back when the renaming fails. Throws `NotFound`, `IsFolder`
    /// (the target is one), `PermissionDenied`.
    void rename(const std::string& from, const std::string& to, bool replace = false);

    /// Gives a file or folder these permission bits; a link is followed. FTP: MFF UNIX.mode, else SITE CHMOD.
    /// SFTP: SETSTAT. Throws `NotFound`, `PermissionDenied`, `NotSupported`.
    void set_permissions(const std::string& path, std::filesystem::perms mode);
    /// Gives a file or folder this modification time; a link is followed. FTP: MFMT, else MDTM with the time
    /// before the name. SFTP: SETSTAT, which sets the access time too. Throws `NotFound`, `PermissionDenied`,
    /// `NotSupported` (also for times that cannot be sent: FTP before 1970 and after 9999, SFTP after 2106).
    void set_modification_time(const std::string& path, std::chrono::sys_seconds time);

    /// Makes a symbolic link at `path` that says `target`, which is seen from the link's folder. SFTP: SYMLINK,
    /// with its arguments in OpenSSH's order, which other servers follow; the target is kept byte for byte and
    /// need not exist. FTP: SITE SYMLINK, where FEAT tells of it; the link says the absolute name of the
    /// target, which must exist. Throws `AlreadyExists`, `NotFound` (the folder), `PermissionDenied`,
    /// `NotSupported`.
    void make_link(const std::string& target, const std::string& path);
    /// Gives the file `existing` a further name. SFTP: hardlink@openssh.com. Throws `AlreadyExists`,
    /// `NotFound`, `PermissionDenied`, `NotSupported` (FTP has no such command).
    void make_hard_link(const std::string& existing, const std::string& path);
    /// What the symbolic link at `path` says. FTP: what a listing of its folder tells. SFTP: READLINK. Throws
    /// `NotFound`, `Refused` (it is no link), `NotSupported`.
    [[nodiscard]] std::string read_link(const std::string& path);
    /// The room on the storage that holds `path`. FTP: AVBL, where FEAT tells of it. SFTP:
    /// statvfs@openssh.com. Throws `NotFound`, `NotSupported`.
    [[nodiscard]] disk_space space(const std::string& path = ".");

    /// Fetches a file. FTP: SIZE, RETR. SFTP: OPEN, FSTAT, many READs at a time, CLOSE. Throws `NotFound`,
    /// `IsFolder`, `PermissionDenied`, `SizeMismatch`, `CannotResume`, `AlreadyExists`, `LocalFileError`.
    void fetch(const std::string& remote_path, const std::filesystem::path& local_path,
               const transfer_options& options = {});
    /// Fetches a file, or the part of it that the options name, piece by piece and in order; `on_data`
    /// returning false ends it with `Cancelled`.
    void fetch(const std::string& remote_path, const std::function<bool(std::string_view)>& on_data,
               const transfer_options& options = {});
    /// A file, or the part of it that the options name, as a string.
    [[nodiscard]] std::string fetch_string(const std::string& remote_path,
                                           const transfer_options& options = {});

    /// Opens a file to be read at any place. Throws `NotFound`, `IsFolder`, `PermissionDenied`.
    [[nodiscard]] remote_file open(const std::string& remote_path) const;

    /// Sends a file. FTP: STOR (APPE when it resumes), SIZE, RNFR, RNTO. SFTP: OPEN, many WRITEs at a time,
    /// FSETSTAT, CLOSE, rename. Throws as `fetch` does, and `DiskFull`.
    void send(const std::filesystem::path& local_path, const std::string& remote_path,
              const transfer_options& options = {});
    /// Sends what `read` gives: it fills the beginning of the buffer and returns how much of it, 0 at the end.
    /// What it throws ends the transfer and leaves the target as it was.
    void send(const std::function<std::size_t(std::span<char>)>& read, const std::string& remote_path,
              const transfer_options& options = {});
    void send_string(std::string_view content, const std::string& remote_path,
                     const transfer_options& options = {});

    /// The answer to SYST, without its code; on SFTP, empty.
    [[nodiscard]] std::string system_type();

private:
    friend struct session_access;
    struct state;

    explicit session(std::unique_ptr<state> opened);
    [[nodiscard]] state& opened() const;

    std::unique_ptr<state> state_;
};

} // namespace qrftp

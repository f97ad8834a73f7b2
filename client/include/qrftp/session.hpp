#pragma once

#include <qrftp/entry.hpp>
#include <qrftp/errors.hpp>
#include <qrftp/options.hpp>
#include <qrftp/transfer.hpp>
#include <qrftp/url.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp {

class remote;

/// What was agreed on with a server. Texts are as the server sent them and may be empty.
struct connection_info {
    std::string server;                ///< FTP: the greeting; SFTP: empty
    std::string tls;                   ///< protocol and cipher, "TLSv1.2 ECDHE-…"; empty without TLS
    std::optional<host_key> key;       ///< SFTP
    std::vector<std::string> features; ///< FTP: the lines of FEAT (RFC 2389)
    std::string login_folder;
    double round_trip = 0; ///< seconds, of one request that does next to nothing
};

struct listing {
    std::vector<entry> entries;
    std::vector<std::string> skipped; ///< lines that could not be read, or whose names are refused
};

enum class list_order { as_sent, by_name };

/// A login on one FTP or SFTP server, with a working folder.
///
/// Remote names are bytes. A relative one is seen from the working folder, which this object keeps: the server
/// only ever gets absolute names. "." and ".." segments are resolved before anything is sent.
///
/// One thread at a time; several objects side by side. Moves leave an object that can only be assigned to or
/// destroyed.
///
/// Every member that names something throws `error::InvalidName`, before anything is sent, for a name with CR,
/// LF or NUL. Every request may throw `error::ServerGone`, `error::Stalled`, `error::Cancelled` and, when it
/// had to reconnect, what the constructor throws. A connection that was lost is opened again, and a request
/// that can be repeated (or was certainly not carried out) is repeated, once.
class QRFTPCLIENT_EXPORT session {
public:
    /// Connects and logs in. FTP: AUTH TLS, USER, PASS, PBSZ, PROT, PWD, FEAT. The path of `location` is not
    /// looked at; the working folder is that of the login.
    ///
    /// Throws `error::NoConnection`, `NoEncryption`, `CertificateRefused`, `HostKeyUnknown`, `HostKeyChanged`,
    /// `HostKeyRevoked`, `LoginRefused`, `InvalidName`.
    session(url location, options how);
    session(const std::string& location, options how);
    session(session&& other) noexcept;
    session& operator=(session&& other) noexcept;
    ~session();

    /// Another login like this one, in the same working folder.
    session another() const;

    const url& location() const;

    /// Makes one request for the round trip. FTP: NOOP. SFTP: the time of the login's folder is asked for.
    connection_info about();

    /// Sends nothing.
    const std::string& working_folder() const;
    /// The absolute form of `path`, without "." and ".." segments. Sends nothing.
    std::string absolute(const std::string& path) const;
    /// FTP: CWD there and back to the login folder. SFTP: lists the folder. Returns the new working folder.
    /// Throws `error::Missing`, `NotFolder`, `Denied`; the working folder is then the old one.
    std::string change_folder(const std::string& path);

    /// What is at `path`, or nothing. FTP: MLST, and the parent folder's listing where it says no; without
    /// MLST, CWD, SIZE and MDTM come first. SFTP: the parent folder's listing. A link is not followed, unless
    /// the server does so in its answer to MLST. The name in the answer is the last one of `path`, "/" for the
    /// root.
    std::optional<entry> find(const std::string& path);
    /// `find`, throwing `error::Missing`.
    entry stat(const std::string& path);
    bool exists(const std::string& path);
    /// Whether there is a folder, or a link to one.
    bool is_folder(const std::string& path);
    /// Whether there is something else, or a link to something else.
    bool is_file(const std::string& path);
    /// How many bytes a file has, a link's target too; empty when the server does not tell. FTP: SIZE.
    std::optional<std::uint64_t> file_size(const std::string& path);
    /// The modification time of a file in UTC to the second; empty when the server does not tell. FTP: MDTM.
    std::optional<timestamp> modification_time(const std::string& path);

    /// Gives the entries of a folder to `found` while they arrive, and each line that cannot be read to
    /// `skipped`. FTP: MLSD, else LIST. A request of which something was given away is not repeated. Throws
    /// `error::Missing`, `NotFolder`, `Denied`.
    void list(const std::string& path, const std::function<void(entry&&)>& found,
              const std::function<void(std::string_view)>& skipped = {});
    listing list(const std::string& path = ".", list_order order = list_order::by_name);

    /// MKD (SFTP: mkdir). With `parents`, makes what is missing above as well, and a folder that exists is no
    /// error. Throws `error::Exists`, `Missing` (the parent), `Denied`.
    void make_folder(const std::string& path, bool parents = false);
    /// RMD (SFTP: rmdir). With `recursive`, removes what is in it first; links are removed, not followed.
    /// Throws `error::NotEmpty`, `Missing`, `NotFolder`, `Denied`.
    void remove_folder(const std::string& path, bool recursive = false);
    /// DELE (SFTP: rm). Throws `error::Missing`, `IsFolder`, `Denied`.
    void remove_file(const std::string& path);
    /// RNFR, RNTO (SFTP: rename). Where something has the new name: without `replace` throws `error::Exists`;
    /// with it, a file is replaced. A server that does not replace by itself gets the old file moved aside
    /// first, and back when the renaming fails. Throws `error::Missing`, `IsFolder` (the target is one),
    /// `Denied`.
    void rename(const std::string& from, const std::string& to, bool replace = false);

    /// Fetches a file (RETR). Throws `error::Missing`, `IsFolder`, `Denied`, `SizeMismatch`, `CannotResume`,
    /// `Exists`, and the local file layer's errors.
    void fetch(const std::string& remote_path, const std::filesystem::path& local_path,
               const transfer_options& how = {});
    /// Fetches a file piece by piece; `take` returning false ends it with `error::Cancelled`.
    void fetch(const std::string& remote_path, const std::function<bool(std::string_view)>& take);
    /// Sends a file (STOR; APPE when it resumes), checks its size (SIZE). Throws as `fetch` does.
    void send(const std::filesystem::path& local_path, const std::string& remote_path,
              const transfer_options& how = {});

    /// The answer to SYST, without its code; on SFTP, empty.
    std::string system_type();

private:
    explicit session(std::unique_ptr<remote> opened);

    std::unique_ptr<remote> remote_;
};

} // namespace qrftp

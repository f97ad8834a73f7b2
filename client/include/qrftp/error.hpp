#pragma once

#include <qrftpclient_export.hpp>

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace qrftp {

/// Why something failed: one value for each class of error below.
enum class error_cause {
    invalid_url,
    invalid_name,
    invalid_option,
    no_connection,
    proxy_refused,
    no_encryption,
    certificate_refused,
    host_key_unknown,
    host_key_changed,
    host_key_revoked,
    login_refused,
    timeout,
    connection_lost,
    protocol_error,
    not_found,
    permission_denied,
    already_exists,
    not_empty,
    is_folder,
    not_folder,
    disk_full,
    not_supported,
    refused,
    incomplete_listing,
    cannot_resume,
    size_mismatch,
    checksum_mismatch,
    unsafe_name,
    empty_source,
    too_many_removals,
    local_file,
    cancelled,
    closed,
};

/// What the server said about a request. Texts are the server's own, byte for byte.
struct response {
    /// FTP: the reply code (RFC 959, 4.2). SFTP: the status code (SSH_FX_…). 0 when there was none.
    long code = 0;
    std::string message{};
};

/// The root of every error that the client throws. `what()` is a sentence for people, in UTF-8, without control
/// characters and without secrets; programs use the class, or `cause()`. Copies share their content.
class QRFTPCLIENT_EXPORT error : public std::exception {
public:
    /// `subject` is what the error is about: a remote name, a local path, a URL, a host. `reason` completes the
    /// sentence where the class has a place for it.
    error(error_cause why, std::string subject, const std::string& reason = {}, response said = {});
    error(const error&) noexcept = default; // Moves are copies: what was moved from still says what happened.
    error& operator=(const error&) noexcept = default;

    [[nodiscard]] const char* what() const noexcept override;
    [[nodiscard]] error_cause cause() const noexcept;
    /// The name of the class: "NotFound".
    [[nodiscard]] std::string_view name() const noexcept;
    /// What the error is about: a remote name, a local path, a URL or a host.
    [[nodiscard]] const std::string& path() const noexcept;
    /// FTP: the server's reply code. SFTP: its status code. 0 when the server said nothing.
    [[nodiscard]] long reply_code() const noexcept;
    /// The server's own words, byte for byte but for secrets (`masked`), else those of the library that met the
    /// failure; may be empty.
    [[nodiscard]] const std::string& server_message() const noexcept;

protected:
    /// With `sentence` in place of the usual one.
    error(std::string_view sentence, error_cause why, std::string subject, const std::string& reason,
          response said);

private:
    struct details;
    std::shared_ptr<const details> details_;
};

/// The name of the class for `why`: "NotFound".
[[nodiscard]] QRFTPCLIENT_EXPORT std::string_view name_of(error_cause why) noexcept;
/// The usual sentence of `why`: "{0}" stands for the subject, "{1}" for the reason, "{2}" for what the server
/// said, in parentheses.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string_view sentence_of(error_cause why) noexcept;

/// One class for each cause. The constructors take the subject, where the sentence has a place for it a reason,
/// and what the server said. With detail: a reason, where there is one, makes another sentence.
#define QRFTP_ERROR_ABOUT(name, why)                                                                           \
    explicit name(std::string subject, response said = {})                                                     \
        : error(error_cause::why, std::move(subject), {}, std::move(said))                                     \
    {                                                                                                          \
    }
#define QRFTP_ERROR_BECAUSE(name, why)                                                                         \
    name(std::string subject, const std::string& reason, response said = {})                                   \
        : error(error_cause::why, std::move(subject), reason, std::move(said))                                 \
    {                                                                                                          \
    }
#define QRFTP_ERROR(name, why)                                                                                 \
    class QRFTPCLIENT_EXPORT name : public error {                                                             \
    public:                                                                                                    \
        QRFTP_ERROR_ABOUT(name, why)                                                                           \
    }
#define QRFTP_ERROR_WITH_REASON(name, why)                                                                     \
    class QRFTPCLIENT_EXPORT name : public error {                                                             \
    public:                                                                                                    \
        QRFTP_ERROR_BECAUSE(name, why)                                                                         \
    }
#define QRFTP_ERROR_WITH_DETAIL(name, why)                                                                     \
    class QRFTPCLIENT_EXPORT name : public error {                                                             \
    public:                                                                                                    \
        QRFTP_ERROR_ABOUT(name, why)                                                                           \
        QRFTP_ERROR_BECAUSE(name, why)                                                                         \
    }

/// The text is not the URL of an FTP or SFTP server. Nothing was sent.
QRFTP_ERROR_WITH_REASON(InvalidUrl, invalid_url);
/// A name, user name or password holds a byte that the protocol cannot carry: NUL on either; on FTP also CR, LF
/// and the byte 255, which is Telnet's (RFC 854). Nothing was sent.
QRFTP_ERROR_WITH_REASON(InvalidName, invalid_name);
/// An option, or a setting of a configuration file, has a value that means nothing. Nothing was sent.
QRFTP_ERROR_WITH_REASON(InvalidOption, invalid_option);

/// No connection came about: unknown host, nobody listens, the network refused.
QRFTP_ERROR(NoConnection, no_connection);
/// The proxy was reached and did not make the connection; the message is its status or its reason.
QRFTP_ERROR(ProxyRefused, proxy_refused);
/// TLS was asked for, and the server does not offer it or no common version was found. The reason, where there
/// is one, says which.
QRFTP_ERROR_WITH_DETAIL(NoEncryption, no_encryption);
/// The server's certificate was not accepted. Nothing secret was sent.
QRFTP_ERROR(CertificateRefused, certificate_refused);
/// The host has no line in the known-hosts files, and unknown ones are not accepted. The reason holds the key's
/// type and fingerprint.
QRFTP_ERROR_WITH_REASON(HostKeyUnknown, host_key_unknown);
/// The host showed another key than the known-hosts files have for it.
QRFTP_ERROR_WITH_REASON(HostKeyChanged, host_key_changed);
/// The host showed a key that a known-hosts file marks as revoked.
QRFTP_ERROR_WITH_REASON(HostKeyRevoked, host_key_revoked);
/// The server refused the user name, the password or the keys.
QRFTP_ERROR(LoginRefused, login_refused);
/// Nothing arrived, or too little, for the time allowed. The reason, where there is one, is the limit of the
/// whole.
QRFTP_ERROR_WITH_DETAIL(Timeout, timeout);
/// The connection broke during a request. A request that changes something may have been carried out; it was
/// not repeated. The reason, where there is one, says what a fetch has left.
QRFTP_ERROR_WITH_DETAIL(ConnectionLost, connection_lost);
/// The other side does not keep to the protocol: a packet that cannot be read, an answer that nobody asked for.
/// The connection is closed.
QRFTP_ERROR_WITH_REASON(ProtocolError, protocol_error);

/// There is nothing of that name on the server.
QRFTP_ERROR(NotFound, not_found);
/// The server does not allow it.
QRFTP_ERROR(PermissionDenied, permission_denied);
/// There is already something of that name.
QRFTP_ERROR(AlreadyExists, already_exists);
/// The folder still holds entries.
QRFTP_ERROR(NotEmpty, not_empty);
/// A file was wanted, and it is a folder.
QRFTP_ERROR(IsFolder, is_folder);
/// A folder was wanted, and it is something else.
QRFTP_ERROR(NotFolder, not_folder);
/// The server's disk, or the user's share of it, is full.
QRFTP_ERROR(DiskFull, disk_full);
/// The server does not have what was asked for: a command, an extension.
QRFTP_ERROR(NotSupported, not_supported);
/// The server refused, for a reason that only its own words tell.
QRFTP_ERROR(Refused, refused);

/// The server began a listing and did not end it, or said that it left something out. Nothing was concluded
/// from it.
QRFTP_ERROR_WITH_REASON(IncompleteListing, incomplete_listing);
/// A partial file cannot be completed; the reason says why. Nothing was changed.
QRFTP_ERROR_WITH_REASON(CannotResume, cannot_resume);
/// What arrived is not as long as what was sent.
QRFTP_ERROR_WITH_REASON(SizeMismatch, size_mismatch);
/// The checksums of source and copy differ. The target is what it was.
QRFTP_ERROR_WITH_REASON(ChecksumMismatch, checksum_mismatch);
/// The server sent a name that no local file may get ("..", or one with "/" or NUL), or a local link leads out
/// of the destination. Nothing was written.
QRFTP_ERROR_WITH_REASON(UnsafeName, unsafe_name);
/// The source of a synchronisation is empty, and the destination is not: it may be a folder that is not
/// mounted. Nothing was removed.
QRFTP_ERROR(EmptySource, empty_source);
/// More would be removed than the options allow; the reason says how many. Nothing was changed.
QRFTP_ERROR_WITH_REASON(TooManyRemovals, too_many_removals);
/// The caller asked for the end: by the stop token or by a callback that returned false.
QRFTP_ERROR(Cancelled, cancelled);
/// The session or the open file was closed, or moved from.
QRFTP_ERROR(Closed, closed);

/// A local file or folder could not be opened, read or written.
class QRFTPCLIENT_EXPORT LocalFileError : public error {
public:
    /// The sentence says `reason` where it is not empty, else what `code` means.
    LocalFileError(std::string path, std::error_code code, const std::string& reason = {});
    /// There is no such folder; the sentence asks for it where one `is_wanted` to put something in.
    static LocalFileError missing_folder(std::string path, bool is_wanted = false);

    /// What the system said: `std::errc::no_such_file_or_directory`, `no_space_on_device` and so on.
    [[nodiscard]] const std::error_code& code() const noexcept { return code_; }

private:
    LocalFileError(std::string_view sentence, std::string path, std::error_code code);

    std::error_code code_;
};

#undef QRFTP_ERROR
#undef QRFTP_ERROR_WITH_REASON
#undef QRFTP_ERROR_WITH_DETAIL
#undef QRFTP_ERROR_ABOUT
#undef QRFTP_ERROR_BECAUSE

} // namespace qrftp

#pragma once

/// The errors of the client, each thrown as `foundation::core::except::Exception<Error>`: catch them by the
/// names below, all of them as `qrftp::error::failure`, or as `std::exception`, whose `what()` is a sentence.
/// Errors of local files are those of the local file layer (`ZORBEL::io::common::file`), and the core's own
/// errors pass through.

#include <foundation/core/except/Exception.hpp>
#include <qrftpclient_export.hpp>
#include <zorbel/io/common/file/errors.hpp>

#include <string>
#include <vector>

namespace qrftp {

/// What the other side and libcurl had to say about a failed request.
struct answer {
    long reply = 0;      ///< the FTP server's last reply code; 0 on SFTP and when there was none
    int curl = 0;        ///< libcurl's result code
    std::string words{}; ///< the server's last reply line, else libcurl's own words; may be empty
};

namespace error {

inline constexpr const char* component = "qrftp:client";

/// What all errors of the client have. The first argument of a message is what it is about: a remote name, a
/// URL, a host. Where the server was asked, the last one is what it said, in brackets, or empty.
struct QRFTPCLIENT_EXPORT failure {
    using Message = foundation::core::except::Message;
    failure(std::string key, std::vector<std::string> arguments, answer said);
    Message message;
    answer said;
};

/// An error about one thing, with what the server said.
#define QRFTP_ERROR(name)                                                                                      \
    struct QRFTPCLIENT_EXPORT name : failure {                                                                 \
        explicit name(const std::string& about, answer said_of_it = {})                                        \
            : failure(#name, {about}, std::move(said_of_it))                                                   \
        {                                                                                                      \
        }                                                                                                      \
    }

/// An error about one thing, with a reason in words instead.
#define QRFTP_ERROR_WITH_REASON(name)                                                                          \
    struct QRFTPCLIENT_EXPORT name : failure {                                                                 \
        name(const std::string& about, const std::string& reason, answer said_of_it = {})                      \
            : failure(#name, {about, reason}, std::move(said_of_it))                                           \
        {                                                                                                      \
        }                                                                                                      \
    }

/// The text is not the URL of an FTP or SFTP server. Nothing was sent.
QRFTP_ERROR_WITH_REASON(InvalidUrl);
/// A name, user name or password holds what cannot be sent as part of one: CR, LF or NUL; over FTP, the byte
/// 255, which is Telnet's (RFC 854), and in transfers and listings any control character. Nothing was sent.
QRFTP_ERROR_WITH_REASON(InvalidName);

/// No connection came about: unknown host, nobody listens, the proxy or the network refused.
QRFTP_ERROR(NoConnection);
/// Encryption was asked for, and the server does not offer it, or no common way was found.
QRFTP_ERROR(NoEncryption);
/// The server's certificate was not accepted.
QRFTP_ERROR(CertificateRefused);
/// The host has no line in the known-hosts file, and unknown ones are not accepted. The reason holds the key's
/// type and fingerprint.
QRFTP_ERROR_WITH_REASON(HostKeyUnknown);
/// The host showed another key than the known-hosts file has for it.
QRFTP_ERROR_WITH_REASON(HostKeyChanged);
/// The host showed a key that the known-hosts file has marked as revoked.
QRFTP_ERROR_WITH_REASON(HostKeyRevoked);
/// The server refused the user name, the password or the key.
QRFTP_ERROR(LoginRefused);
/// Nothing arrived, or too little, for the time allowed.
QRFTP_ERROR(Stalled);
/// The connection was lost in the middle of a request. A request that changes something may have been carried
/// out; it was not repeated.
QRFTP_ERROR(ServerGone);

/// There is nothing of that name on the server.
QRFTP_ERROR(Missing);
/// The server does not allow it.
QRFTP_ERROR(Denied);
/// There is already something of that name.
QRFTP_ERROR(Exists);
/// The folder still holds entries.
QRFTP_ERROR(NotEmpty);
/// A file was wanted, and it is a folder.
QRFTP_ERROR(IsFolder);
/// A folder was wanted, and it is something else.
QRFTP_ERROR(NotFolder);
/// The server refused, for a reason that only its words tell.
QRFTP_ERROR(Refused);

/// A partial file cannot be completed; the reason says why. Nothing was changed.
QRFTP_ERROR_WITH_REASON(CannotResume);
/// What arrived is not as long as what was sent. The target was left as it was.
QRFTP_ERROR_WITH_REASON(SizeMismatch);
/// The server sent a name that no local file may get ("..", or one with "/" or NUL), or a local link leads out
/// of the destination. Nothing was written.
QRFTP_ERROR_WITH_REASON(UnsafeName);
/// A callback of the caller's asked for the end.
QRFTP_ERROR(Cancelled);

#undef QRFTP_ERROR
#undef QRFTP_ERROR_WITH_REASON

} // namespace error
} // namespace qrftp

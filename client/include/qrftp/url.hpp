#pragma once

#include <qrftpclient_export.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace qrftp {

enum class url_scheme {
    ftp,  ///< FTP; TLS begins on request, after the greeting (RFC 4217)
    ftps, ///< FTP over TLS from the first byte on (implicit TLS)
    sftp,
};

/// The URL of a remote file or folder in its parts, percent-decoded. A "%" that two hexadecimal digits do not
/// follow stands for itself; "?", "#" and blanks are part of names.
struct QRFTPCLIENT_EXPORT url {
    url_scheme scheme = url_scheme::ftp;
    std::string host{};     ///< a name or an address; one of IPv6 in brackets
    std::uint16_t port = 0; ///< 0 where none is given: 21, for ftps 990, for sftp 22 or what ssh_config says
    std::string user{};
    std::string password{};
    /// Absolute, or relative to the folder of the login; empty for that folder itself. "ftp://host/a" and
    /// "ftps://host/a" are relative, "ftp://host//a" is absolute (RFC 1738, 3.2.2); "sftp://host/a" is
    /// absolute, "sftp://host/~/a" relative.
    std::string path{};
    /// `path` as a pattern for `glob`: what was percent-encoded, and a backslash, stands for itself.
    std::string pattern{};

    /// Takes `whole` apart. Throws `InvalidUrl` for a text that is no URL, another scheme than ftp, ftps or
    /// sftp, no host, a numeric address in another form than the usual one, port 0, or a control character in
    /// any part.
    [[nodiscard]] static url parse(std::string_view whole);

    /// The server as people write it: scheme, host, and the port where one is given that is not the usual one.
    [[nodiscard]] std::string server() const;

    /// `port`, or the usual one of the scheme.
    [[nodiscard]] std::uint16_t effective_port() const noexcept;
};

/// Whether `text` begins as the URL of a server does: with a scheme and "://".
[[nodiscard]] QRFTPCLIENT_EXPORT bool is_url(std::string_view text) noexcept;

/// Where the password stands in the URL `text`, as it is written there; empty where there is none. Also where
/// `text` is no URL, in which more may be taken for the password than is.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string_view password_in(std::string_view text) noexcept;

/// `text` with the password of a URL in it as asterisks, for messages; also where the text is no URL.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string without_password(std::string_view text);

} // namespace qrftp

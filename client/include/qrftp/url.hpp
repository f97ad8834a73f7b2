#pragma once

#include <qrftpclient_export.hpp>

#include <cstdint>
#include <string>

namespace qrftp {

/// The URL of a remote file or folder in its parts, percent-decoded.
struct QRFTPCLIENT_EXPORT url {
    bool sftp = false;
    std::string host;
    std::uint16_t port = 0;
    std::string user;
    std::string password;
    /// Absolute, or relative to the folder of the login; empty for that folder itself. "ftp://host/a" is
    /// relative, "ftp://host//a" absolute (RFC 1738, 3.2.2); "sftp://host/a" is absolute, "sftp://host/~/a"
    /// relative.
    std::string path;

    /// Takes `whole` apart. The ports are 21 and 22 where none is given. Throws `error::InvalidUrl` for a text
    /// that is no URL, another scheme than ftp or sftp, no host, port 0, or a control character in any
    /// part.
    static url parse(const std::string& whole);

    /// The server as people write it: scheme, host, and the port where it is not the usual one.
    std::string server() const;
};

} // namespace qrftp

#pragma once

#include <qrftp/known_hosts.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace qrftp {

/// What a server told of itself and what was agreed on. Texts are as the server sent them and may be empty.
struct server_info {
    std::string greeting{};        ///< FTP: the line of the greeting; SFTP: the server's identification
    std::string encryption{};      ///< FTP: TLS version and cipher, "TLSv1.2 ECDHE-…"; SFTP: the ciphers
    std::optional<host_key> key{}; ///< SFTP
    std::vector<std::string> features{}; ///< FTP: the lines of FEAT (RFC 2389); SFTP: the extensions of VERSION
    std::string login_folder{};          ///< absolute
    std::chrono::duration<double>
        round_trip{}; ///< of one request that does next to nothing; 0 before one was made
};

} // namespace qrftp

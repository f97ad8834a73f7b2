#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace qrftp::cli {

/// What the command line says about reaching the server, besides the URL.
struct login_options {
    std::string user;
    std::string tls = "strict";
    std::string certificate_authority_file;
    std::string key;
    std::string public_key;
    bool key_has_pass_phrase = false;
    std::string known_hosts;
    bool active = false;
    bool proxy = false;
    bool verbose = false;
};

/// Adds the options above, with their help texts, to a command.
void add_login_options(CLI::App& command, login_options& options);

/// The command line cannot be understood; the text says why.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A remote URL in its parts.
struct remote {
    bool sftp = false;
    std::string host;
    long port = 0;
    std::string user;
    std::string password;
    /// Decoded. FTP: relative to the login folder unless it begins with "/" ("ftp://host//absolute"). SFTP:
    /// absolute.
    std::string path;
};

/// Takes `url` apart. Throws `usage_error` when it is not the URL of an FTP or SFTP server.
remote parse_url(const std::string& url);

/// Logs in and returns the server's working folder. Throws the library's errors.
std::string open(zorbel::io::ftp::core::curl_ptr& connection, const remote& target,
                 const login_options& options);

} // namespace qrftp::cli

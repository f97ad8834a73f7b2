#pragma once

#include "settings.hpp"

#include <qrftp/session.hpp>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qrftp::cli {

class login_dialogue;

/// The proxy that the environment names.
constexpr const char* environment_proxy = "environment";

/// What the command line says about reaching the server, besides the URL.
struct login_options {
    std::string user;
    std::string password_file;
    std::string password_command;
    std::string netrc_file = "~/.netrc";
    std::string tls = "strict";
    std::string certificate_authorities;
    std::vector<std::string> pins;
    std::string tls_trust = "strict";
    std::string known_tls;
    std::string certificate;
    std::string certificate_key;
    bool active = false;
    std::string proxy; ///< a URL; `environment_proxy` for that of the environment, empty for none
    std::vector<std::string> keys;
    std::string pass_phrase_file;
    bool no_agent = false;
    bool identities_only = false;
    std::string ssh_config;
    std::string host_key = "accept-new";
    std::string known_hosts;
    double connect_timeout = 30;
    double stall_timeout = 60;
    double timeout = 0;
};

/// Adds the options above, with their help texts, to a command.
void add_login_options(CLI::App& command, login_options& options);

/// Joins "--proxy" and the URL of a proxy after it to one word. The URL may be left out, and what follows is
/// then the URL of a server.
void join_proxy_url(std::vector<std::string>& arguments);

/// Makes the passwords of URLs in the process's arguments asterisks, so that no list of processes shows them,
/// and masks them in traces; also that of "--proxy=URL".
void hide_passwords(std::span<char*> arguments);

/// Takes URLs apart that must be of one server and one user. Throws `usage_error`, `InvalidUrl`.
std::vector<url> parse_urls(const std::vector<std::string>& words);

/// A way to one server, which may be gone several times.
class login {
public:
    /// Reads files and the environment for user names, passwords and keys. Throws `LocalFileError`.
    login(const url& server, const login_options& options, const settings& settings);

    /// Connects, asking at the terminal where it must. Throws `no_secret` and what the session's constructor
    /// throws.
    [[nodiscard]] session open() const;

private:
    url server_;
    session_options options_;
    std::shared_ptr<login_dialogue> dialogue_;
    std::string subject_;
};

} // namespace qrftp::cli

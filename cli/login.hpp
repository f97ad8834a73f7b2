#pragma once

#include "settings.hpp"

#include <qrftp/client.hpp>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qrftp::cli {

/// What the command line says about reaching the server, besides the URL.
struct login_options {
    std::string user;
    std::string password_file;
    std::string netrc_file = "~/.netrc";
    std::string tls = "strict";
    std::string certificate_authorities;
    bool active = false;
    bool proxy = false;
    std::string key;
    std::string public_key;
    std::string pass_phrase_file;
    std::string host_key = "accept-new";
    std::string known_hosts = "~/.ssh/known_hosts";
    double connect_timeout = 30;
    unsigned stall_timeout = 60;
    double timeout = 0;
};

/// Adds the options above, with their help texts, to a command.
void add_login_options(CLI::App& command, login_options& given);

/// Whether `word` is meant as a URL: it has a scheme and "://".
bool is_url(const std::string& word);

/// Takes URLs apart that must be of one server and one user: the first one with the others' paths, in their
/// order, in `paths`. Their passwords are secrets from here on. Throws `usage_error`, `error::InvalidUrl`.
url parse_urls(const std::vector<std::string>& words, std::vector<std::string>& paths, const settings& how);

/// Finds the password or the key, asks at the terminal where it must, and logs in. Throws `no_secret`, what
/// `session` throws and the local file layer's errors.
session open(const url& where, const login_options& given, const settings& how);

} // namespace qrftp::cli

#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qrftp::cli {

/// A secret is needed, no source has it, and there is no terminal to ask for it.
struct no_secret : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What a netrc file has for a host.
struct netrc_entry {
    std::string login;
    std::string password;
};

/// The first entry of `text` for `host`, and for `user` unless that is empty; else the default one on the same
/// terms. Words may be quoted with `"`; "#" where a keyword may stand opens a comment.
std::optional<netrc_entry> find_in_netrc(std::string_view text, std::string_view host, std::string_view user);

/// The user's home folder, in place of a "~" that `path` begins with.
std::filesystem::path expand_home(const std::string& path);

/// The first line of a local file, without its end.
std::string first_line(const std::filesystem::path& file);

/// The value of an environment variable.
std::optional<std::string> environment(const char* name);

/// The user name of the process.
std::string own_name();

/// Whether a private key file asks for a pass phrase. Throws the local file layer's errors.
bool is_encrypted(const std::filesystem::path& key);

} // namespace qrftp::cli

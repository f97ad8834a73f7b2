#pragma once

#include <qrftp/known_hosts.hpp>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace qrftp {

enum class tls_mode {
    none,          ///< plain FTP; the password is sent in the clear
    opportunistic, ///< TLS where the server offers it; without TLS for anonymous logins only
    strict,        ///< TLS for control and data connections (RFC 4217), or no connection
};

enum class host_key_check {
    strict,     ///< the host's key must be in the known-hosts file
    accept_new, ///< the key of a host that the file does not have is added to it; a changed one is refused
    off,        ///< any key will do
};

/// How to reach a server and log in.
struct options {
    /// Else the URL's; else "anonymous" over FTP. SFTP needs one.
    std::string user{};
    /// Else the URL's.
    std::optional<std::string> password{};
    /// SFTP: the key to log in with instead of a password.
    std::filesystem::path private_key{};
    /// Else the private key's file name with ".pub", where there is such a file; else made of the private key.
    std::filesystem::path public_key{};
    std::string pass_phrase{};

    tls_mode tls = tls_mode::strict;
    /// PEM file of the certificate authorities to trust, and no others; empty means the system's.
    std::filesystem::path certificate_authorities{};
    /// FTP: the server opens the data connections.
    bool active = false;
    /// Goes through the HTTP proxy that the host program's proxy selector names (the stand-alone host's reads
    /// http_proxy, https_proxy and no_proxy).
    bool use_proxy = false;

    host_key_check host_keys = host_key_check::accept_new;
    /// Empty means .ssh/known_hosts in the user's home folder.
    std::filesystem::path known_hosts_file{};
    /// Asked before a new key is accepted (`accept_new`); false refuses it. Empty means yes.
    std::function<bool(const host_key&)> confirm_host_key{};

    std::chrono::milliseconds connect_timeout = std::chrono::seconds(30);
    /// Gives up a request that moves less than a byte a second for so long; 0 means never.
    std::chrono::seconds stall_timeout = std::chrono::seconds(60);
    /// Limits every request as a whole; 0 means no limit.
    std::chrono::milliseconds total_timeout = std::chrono::milliseconds(0);

    /// What libcurl may hold of a transfer. Its own defaults hold SFTP back on every line with a delay.
    std::size_t receive_buffer = std::size_t{2} * 1024 * 1024;
    std::size_t send_buffer = std::size_t{2} * 1024 * 1024;

    /// Asked several times a second while a request runs; true ends it with `error::Cancelled`. Called on the
    /// thread of the request; with `tree_options::jobs` on several threads at once.
    std::function<bool()> cancelled{};
};

} // namespace qrftp

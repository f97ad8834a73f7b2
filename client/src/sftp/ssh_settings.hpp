#pragma once

#include <qrftp/options.hpp>
#include <qrftp/url.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace qrftp::sftp {

/// How to reach an SSH server and log in there: what the URL and the options say, else OpenSSH's configuration,
/// else the defaults.
struct ssh_settings {
    std::string server{}; ///< the URL's, for messages
    std::string host{};
    std::uint16_t port = 0;
    std::string user{};
    std::optional<std::string> password{};

    std::vector<std::filesystem::path> private_keys{};
    bool explicit_keys = false; ///< the keys were named by the options: each of them must be readable
    std::vector<std::filesystem::path> certificates{};
    bool explicit_certificates = false;
    bool identities_only = false;

    std::string known_hosts_name{};
    std::vector<std::filesystem::path> user_known_hosts{};
    std::vector<std::filesystem::path> global_known_hosts{};
    host_key_check host_keys = host_key_check::accept_new;

    /// The program that carries the connection; empty where there is none.
    std::vector<std::string> proxy_command{};

    std::chrono::milliseconds connect_timeout{}; ///< of each step until SFTP begins
    std::chrono::seconds alive_interval{0};      ///< 0: the server is not asked whether it is still there
    unsigned alive_count_max = 3;
};

/// The shorter of two limits of time, of which 0 means none.
inline std::chrono::milliseconds shorter_limit(std::chrono::milliseconds one, std::chrono::milliseconds other)
{
    return one.count() == 0 || other.count() == 0 ? one + other : std::min(one, other);
}

/// Reads the configuration files. Throws `InvalidName`, `InvalidOption` and `LocalFileError`.
ssh_settings resolve_settings(const url& server, const session_options& options);

} // namespace qrftp::sftp

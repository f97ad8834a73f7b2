#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::sftp {

/// What OpenSSH's configuration says about one host (ssh_config(5)). For each setting the first value counts;
/// those of IdentityFile and CertificateFile add up. What is not set is empty.
struct ssh_config {
    std::string host_name{}; ///< with "%h" replaced; the name asked for where the files say nothing
    std::string user{};
    std::optional<std::uint16_t> port{};
    std::vector<std::filesystem::path> identity_files{};
    bool no_identity_files = false; ///< "IdentityFile none"
    std::vector<std::filesystem::path> certificate_files{};
    std::optional<bool> identities_only{};
    /// "none" switches off what later lines say.
    std::optional<std::string> proxy_jump{};
    std::optional<std::string> proxy_command{};
    std::optional<std::vector<std::filesystem::path>> user_known_hosts_files{};
    std::optional<std::vector<std::filesystem::path>> global_known_hosts_files{};
    std::optional<std::string> strict_host_key_checking{}; ///< lower case
    std::string host_key_alias{};
    std::optional<std::chrono::seconds> connect_timeout{};
    std::optional<std::chrono::seconds> server_alive_interval{};
    std::optional<unsigned> server_alive_count_max{};
};

/// Whom a configuration is asked about, and what "~" and the "%" tokens stand for.
struct ssh_config_query {
    std::string host{};       ///< as it was asked for
    std::string user{};       ///< the remote user where one was asked for
    std::string local_user{}; ///< for "%u", and for "Match user" where no remote user is known
    std::filesystem::path home{};
};

/// One configuration file, and where its relative "Include" patterns begin.
struct ssh_config_source {
    std::string text{};
    std::filesystem::path file{}; ///< for messages
    std::filesystem::path include_folder{};
};

/// Finds the files of an "Include" pattern, which is absolute, in the order to read them in.
using ssh_config_includes = std::function<std::vector<ssh_config_source>(const std::filesystem::path& pattern)>;

/// Reads `sources` in their order. Understands Host, Match with all, host, originalhost and user, and Include
/// down to 16 levels; a block with another condition of Match does not count, and unknown keywords are passed
/// over. Throws `InvalidOption` for a line that means nothing, with the file and the line number.
ssh_config parse_ssh_config(const std::vector<ssh_config_source>& sources, const ssh_config_query& query,
                            const ssh_config_includes& includes);

} // namespace qrftp::sftp

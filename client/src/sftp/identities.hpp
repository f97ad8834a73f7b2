#pragma once

#include "ssh_settings.hpp"

#include <filesystem>
#include <string>
#include <vector>

namespace qrftp::sftp {

/// One key to log in with.
struct identity {
    /// The public key; empty where only the pass phrase gives it away.
    std::string key{};
    /// The certificate that is shown in the place of the key; may be empty.
    std::string certificate{};
    bool in_agent = false;
    /// The private key, where the agent does not have it.
    std::filesystem::path file{};
    /// Named by the program: what is wrong with it is an error.
    bool is_explicit = false;
};

/// The keys to try, in the order of ssh(1): those of the agent that are also named by files, the agent's others
/// (not with `identities_only`), those that only files have. Keys that the program names come before all of
/// them. A key with a certificate is tried with it first. Throws `LocalFileError` and `InvalidOption` for a
/// file that the program names and that cannot be used.
std::vector<identity> list_identities(const ssh_settings& settings, const std::vector<std::string>& agent_keys);

} // namespace qrftp::sftp

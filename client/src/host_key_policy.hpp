#pragma once

#include <qrftp/known_hosts.hpp>
#include <qrftp/options.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace qrftp {

/// Decides whether the host key that a server shows is accepted, and remembers new ones.
class host_key_policy {
public:
    struct settings {
        host_key_check check = host_key_check::accept_new;
        /// Read in this order; new keys are added to the first.
        std::vector<std::filesystem::path> user_files{};
        /// Read as well, never written.
        std::vector<std::filesystem::path> global_files{};
        std::function<bool(const host_key&)> confirm{};
        std::function<void(const std::string&)> on_warning{};
    };

    /// `host` is written as in known-hosts files.
    host_key_policy(std::string host, settings how);

    /// The types of the keys that the files have for the host, in their order, each once: the server is asked
    /// for these first, since another key of it could not be told from a forged one. Throws `LocalFileError`.
    [[nodiscard]] std::vector<std::string> known_types() const;

    /// Throws `HostKeyRevoked`, `HostKeyChanged`, `HostKeyUnknown`, and `LocalFileError` for a file that cannot
    /// be read. A new key that could not be written down is accepted all the same, with a warning.
    void check(const host_key& shown) const;

private:
    void remember(const host_key& shown) const;
    void warn(const std::string& sentence) const;

    std::string host_;
    settings settings_;
};

} // namespace qrftp

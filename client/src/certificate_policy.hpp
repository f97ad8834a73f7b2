#pragma once

#include <qrftp/options.hpp>
#include <qrftp/url.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace qrftp {

/// Decides whether the certificate that a server shows is accepted, and remembers new ones. All connections of
/// a login, those for data too, are held to the key that was accepted first.
class certificate_policy {
public:
    /// Reads the file of known certificates. Throws `InvalidOption` for a pin that is none, `LocalFileError`.
    certificate_policy(const url& server, const session_options& options);

    /// Whether there may be a certificate to accept that no authority vouches for.
    [[nodiscard]] bool may_replace_authorities() const;
    /// "host:port", as in the file.
    [[nodiscard]] const std::string& host() const { return host_; }

    /// Whether `shown` is accepted; `problem` is empty where an authority vouches for it. False for a new one
    /// that may be accepted by `accept_new`, on another connection. Throws `CertificateRefused`.
    [[nodiscard]] bool check(const server_certificate& shown);
    /// Asks about a new certificate and remembers it. Throws `CertificateRefused`. One that could not be
    /// written down is accepted all the same, with a warning.
    void accept_new(const server_certificate& shown);

private:
    void check_pins(const server_certificate& shown) const;
    void remember(const server_certificate& shown) const;
    void warn(const std::string& sentence) const;
    [[noreturn]] void refuse(const std::string& why) const;

    std::string server_;
    std::string host_;
    std::vector<std::string> pins_;
    bool needs_authority_; ///< beside a pin
    certificate_trust trust_;
    std::filesystem::path file_;
    std::function<bool(const server_certificate&)> confirm_;
    std::function<void(const std::string&)> on_warning_;
    std::vector<std::string> known_; ///< the pins that the file has for the host
    std::string accepted_;           ///< the pin that this login began with
};

} // namespace qrftp

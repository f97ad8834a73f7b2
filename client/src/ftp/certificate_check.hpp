#pragma once

#include "../certificate_policy.hpp"

#include <qrftp/url.hpp>

#include <openssl/ssl.h>

#include <exception>
#include <string>

namespace qrftp::ftp {

/// A certificate that is to be asked about before the server is connected to again. Not for callers of the
/// client.
struct new_certificate {
    server_certificate shown;
};

/// Looks at the certificate of a server in the middle of the TLS handshake, before anything else is sent. A
/// session that is resumed shows none: that the server has its secrets proves that it is the same. Outlives the
/// connection.
class certificate_check {
public:
    /// Throws what the policy's constructor throws.
    certificate_check(const url& server, const session_options& options);
    certificate_check(const certificate_check&) = delete;
    certificate_check& operator=(const certificate_check&) = delete;
    ~certificate_check() = default;

    /// A connection to the server that is encrypted is about to be made.
    void watch(SSL_CTX* context);

    /// A request begins.
    void reset();
    /// Why the handshake was ended, or null: `CertificateRefused`, `new_certificate`.
    [[nodiscard]] const std::exception_ptr& thrown() const { return thrown_; }
    /// The last certificate since `reset`; its pin is empty where none was shown.
    [[nodiscard]] const server_certificate& shown() const { return shown_; }

    [[nodiscard]] certificate_policy& policy() { return policy_; }
    [[nodiscard]] const certificate_policy& policy() const { return policy_; }

private:
    static int on_certificate(X509_STORE_CTX* chain, void* self) noexcept;
    bool look_at(X509_STORE_CTX* chain);
    [[nodiscard]] bool names_server(X509* certificate) const;

    certificate_policy policy_;
    std::string name_; ///< of the host, as certificates have it
    server_certificate shown_;
    std::exception_ptr thrown_;
};

} // namespace qrftp::ftp

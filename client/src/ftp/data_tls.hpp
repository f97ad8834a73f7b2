#pragma once

#include "certificate_check.hpp"
#include "setopt.hpp"

#include <openssl/ssl.h>

#include <cstddef>
#include <string>

namespace qrftp::ftp {

/// What the encryption of the server's connections goes through: certificates are checked, and it is seen how
/// the encryption of a data connection ends. libcurl takes a connection that is cut off for one that was ended:
/// whoever cuts it could shorten a listing or a file. Outlives the connection.
class data_tls {
public:
    /// `is_implicit`: control connections are encrypted from the first byte on.
    data_tls(certificate_check& check, bool is_implicit) : check_(check), is_implicit_(is_implicit) {}
    data_tls(const data_tls&) = delete;
    data_tls& operator=(const data_tls&) = delete;
    ~data_tls() = default;

    void set_up(const curl_ptr& handle);

    /// A request begins.
    void reset();
    /// What the server said first where implicit TLS was to begin, up to 5 bytes; not while libcurl is traced.
    [[nodiscard]] const std::string& first_bytes() const { return first_bytes_; }
    /// A reply came on the control connection: whether the next handshake is there too.
    void take_reply(bool begins_tls) { control_is_next_ = begins_tls; }

    /// Whether there was an encrypted data connection since `reset`.
    [[nodiscard]] bool is_used() const { return context_ != nullptr; }
    /// Whether the server ended it by close_notify (RFC 5246, 7.2.1).
    [[nodiscard]] bool is_ended() const { return ended_; }

private:
    static CURLcode on_context(CURL* handle, void* context, void* self) noexcept;
    static void on_event(const SSL* connection, int where, int value) noexcept;
    static void on_record(int sent, int version, int type, const void* data, std::size_t size, SSL* connection,
                          void* self) noexcept;

    certificate_check& check_;
    bool is_implicit_;
    const SSL_CTX* context_ = nullptr; ///< the data connection's; libcurl makes one for each connection
    bool control_is_next_ = false;
    bool ended_ = false;
    std::string first_bytes_;
};

} // namespace qrftp::ftp

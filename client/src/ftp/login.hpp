#pragma once

#include "../certificate_policy.hpp"
#include "setopt.hpp"

#include <qrftp/options.hpp>
#include <qrftp/url.hpp>

#include <string>
#include <string_view>

namespace qrftp::ftp {

/// Throws `InvalidName` where `text`, which errors call `subject`, cannot be a part of a command: CR, LF and
/// NUL end it, and what follows would be another one; the byte 255 begins a command of Telnet's (RFC 854),
/// which a control connection is, and servers differ in what they make of a doubled one.
void check_text(std::string_view text, const std::string& subject);

/// Who logs in where, and what libcurl is told of it once, before the first request of a connection.
class login {
public:
    /// Throws `InvalidName` for what cannot be sent, `InvalidOption`.
    login(const url& server, const session_options& options);

    /// `policy` says whether libcurl is to compare the names of certificates.
    void set_up(const curl_ptr& handle, const certificate_policy& policy);

    /// Asks for the password where one is needed and none is given, and tells libcurl. `attempt` counts from 0.
    /// False when the user gives none.
    [[nodiscard]] bool provide_password(const curl_ptr& handle, unsigned attempt);
    /// Whether another password may be asked for after this many were refused.
    [[nodiscard]] bool may_ask_again(unsigned attempts) const;

private:
    void set_limits(const curl_ptr& handle) const;
    void set_proxy(const curl_ptr& handle) const;
    void set_encryption(const curl_ptr& handle) const;
    void set_trust(const curl_ptr& handle, const certificate_policy& policy) const;
    [[nodiscard]] bool asks() const;

    const url& server_;
    const session_options& options_;
    std::string user_;
    std::string password_;
};

} // namespace qrftp::ftp

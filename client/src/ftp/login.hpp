#pragma once

#include <qrftp/options.hpp>
#include <qrftp/session.hpp>
#include <zorbel/io/ftp/core/connection.hpp>

#include <exception>
#include <filesystem>
#include <memory>

namespace qrftp {

/// Sets an option that libcurl keeps a copy of, and throws `std::bad_alloc` when it has no memory for that:
/// without its URL or its command, the request would be another one.
void set_text(zorbel::io::ftp::core::curl_ptr& connection, CURLoption option, const std::string& text);

/// What libcurl is told once, before the first request of a connection, and what it refers to from then on.
/// Outlives the connection.
class login {
public:
    login(const url& location, const options& how);
    login(const login&) = delete;
    login& operator=(const login&) = delete;
    ~login();

    void set_up(zorbel::io::ftp::core::curl_ptr& connection);

    /// Why the server's host key was refused, or null.
    std::exception_ptr host_key_refusal() const { return refusal_; }
    const std::optional<host_key>& key() const { return key_; }
    /// The type of host key that the server is asked for, as one that can be checked; empty means any.
    const std::string& asked_for() const { return asked_for_; }
    /// What may be behind libcurl's result `code` and is not in its words.
    std::string hint(int code) const;

private:
    void set_up_ftp(zorbel::io::ftp::core::curl_ptr& connection);
    void set_up_sftp(zorbel::io::ftp::core::curl_ptr& connection);
    void prefer_known_keys(zorbel::io::ftp::core::curl_ptr& connection);
    void check(const host_key& shown);
    static int host_key_callback(void* self, int type, const char* blob, std::size_t size) noexcept;

    const url& location_;
    const options& how_;
    std::filesystem::path known_hosts_;
    std::filesystem::path preferred_; ///< a temporary known-hosts file
    std::string asked_for_;
    std::optional<host_key> key_;
    bool rsa_only_ = false; ///< the known keys of the host are of a kind that newer servers do not use
    std::exception_ptr refusal_;
};

} // namespace qrftp

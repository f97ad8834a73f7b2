#include "login.hpp"

#include "../login_callbacks.hpp"
#include "../proxy_selection.hpp"
#include "client_certificate.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace qrftp::ftp {

namespace {

constexpr const char* anonymous = "anonymous";

/// In whole seconds, as libcurl counts some limits, and at most what it takes.
long seconds_of(std::chrono::milliseconds time)
{
    constexpr std::int64_t most = std::numeric_limits<unsigned short>::max();
    return static_cast<long>(std::min(std::chrono::ceil<std::chrono::seconds>(time).count(), most));
}

long milliseconds_of(std::chrono::milliseconds time)
{
    constexpr std::int64_t most = std::numeric_limits<int>::max();
    return static_cast<long>(std::min(time.count(), most));
}

} // namespace

void check_text(std::string_view text, const std::string& subject)
{
    static constexpr std::string_view forbidden("\r\n\0\xff", 4);
    const std::size_t place = text.find_first_of(forbidden);
    if (place != std::string_view::npos) {
        throw InvalidName(subject, fmt::format("the byte 0x{:02X}, which FTP cannot carry{}",
                                               static_cast<unsigned char>(text[place]),
                                               subject == text ? "; rename it" : ""));
    }
}

login::login(const url& server, const session_options& options)
    : server_(server), options_(options), user_(options.user.empty() ? server.user : options.user),
      password_(options.password.value_or(server.password))
{
    if (user_.empty()) {
        user_ = anonymous;
    }
    check_text(server_.host, "the host name");
    check_text(user_, "the user name");
    check_text(password_, "the password");
    mask_secret(password_);
}

void login::set_up(const curl_ptr& handle, const certificate_policy& policy)
{
    setopt(handle, CURLOPT_PROTOCOLS_STR, std::string("ftp,ftps"));
    setopt(handle, CURLOPT_NOSIGNAL, 1L);
    // libcurl keeps an entry for every port that it has connected to, and walks through them all on each
    // request.
    setopt(handle, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
    setopt(handle, CURLOPT_MAXCONNECTS, 1L); // a connection that is given up is not taken up again
    setopt(handle, CURLOPT_TCP_KEEPALIVE, 1L);
    setopt(handle, CURLOPT_PATH_AS_IS, 1L);
    setopt(handle, CURLOPT_BUFFERSIZE, options_.receive_buffer);
    setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, options_.send_buffer);
    setopt(handle, CURLOPT_USERNAME, user_);
    setopt(handle, CURLOPT_PASSWORD, password_);
    setopt(handle, CURLOPT_PORT, static_cast<long>(server_.port));
    setopt(handle, CURLOPT_FTP_SKIP_PASV_IP, 1L); // a server may not send its clients elsewhere
    if (options_.active) {
        setopt(handle, CURLOPT_FTPPORT, std::string("-"));
    }
    // Sizes are asked for by commands of ours.
    setopt(handle, CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
    set_limits(handle);
    set_proxy(handle);
    set_encryption(handle);
    set_trust(handle, policy);
}

void login::set_limits(const curl_ptr& handle) const
{
    setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
    setopt(handle, CURLOPT_LOW_SPEED_TIME, seconds_of(options_.stall_timeout));
    setopt(handle, CURLOPT_SERVER_RESPONSE_TIMEOUT, seconds_of(options_.stall_timeout));
    setopt(handle, CURLOPT_ACCEPTTIMEOUT_MS, milliseconds_of(options_.connect_timeout));
    setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, milliseconds_of(options_.connect_timeout));
    setopt(handle, CURLOPT_TIMEOUT_MS, milliseconds_of(options_.total_timeout));
}

void login::set_proxy(const curl_ptr& handle) const
{
    const auto proxy = select_proxy(options_);
    setopt(handle, CURLOPT_PROXY,
           proxy ? proxy->url() : std::string()); // not what the environment says to libcurl
    if (!proxy) {
        return;
    }
    if (proxy->port != 0) {
        setopt(handle, CURLOPT_PROXYPORT, proxy->port);
    }
    if (proxy->has_credentials) {
        setopt(handle, CURLOPT_PROXYUSERNAME, proxy->user);
        setopt(handle, CURLOPT_PROXYPASSWORD, proxy->password);
    }
    // By this limit a proxy is told from a server (`data_tls`).
    setopt(handle, CURLOPT_PROXY_SSLVERSION,
           static_cast<long>(CURL_SSLVERSION_TLSv1_2) | CURL_SSLVERSION_MAX_TLSv1_3);
    setopt(handle, CURLOPT_HTTPPROXYTUNNEL, 1L);
    setopt(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
}

/// TLS 1.2, no newer one. A ticket of TLS 1.3 serves once, and libcurl, up to 8.21 at least, closes a data
/// connection without having read the next one: servers that demand that sessions are reused (ProFTPD, vsftpd:
/// by default) then refuse every data connection after the first. And where such a ticket lies unread when an
/// upload is closed, the kernel resets the connection, and the server can lose the end of the file.
void login::set_encryption(const curl_ptr& handle) const
{
    if (options_.tls == tls_mode::none && (server_.scheme == url_scheme::ftps || !options_.pins.empty())) {
        throw InvalidOption("tls", server_.scheme == url_scheme::ftps
                                       ? "ftps:// is always encrypted; write ftp:// to go without TLS"
                                       : "without TLS there is no certificate, and a pin was given");
    }
    const bool must = user_ != anonymous || server_.scheme == url_scheme::ftps || !options_.pins.empty();
    const long ssl = options_.tls == tls_mode::none                     ? CURLUSESSL_NONE
                     : options_.tls == tls_mode::opportunistic && !must ? CURLUSESSL_TRY
                                                                        : CURLUSESSL_ALL;
    setopt(handle, CURLOPT_USE_SSL, ssl);
    setopt(handle, CURLOPT_FTPSSLAUTH, static_cast<long>(CURLFTPAUTH_TLS));
    setopt(handle, CURLOPT_SSLVERSION,
           static_cast<long>(CURL_SSLVERSION_TLSv1_2) | CURL_SSLVERSION_MAX_TLSv1_2);
    set_client_certificate(handle, options_, server_.server());
}

void login::set_trust(const curl_ptr& handle, const certificate_policy& policy) const
{
    setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    setopt(handle, CURLOPT_SSL_VERIFYHOST, policy.may_replace_authorities() ? 0L : 2L);
    if (!options_.certificate_authorities.empty()) {
        check_authorities(options_.certificate_authorities);
        setopt(handle, CURLOPT_CAINFO, options_.certificate_authorities.string());
        setopt(handle, CURLOPT_CAPATH, nullptr); // the system's would be trusted as well
    }
}

bool login::asks() const
{
    return user_ != anonymous && !options_.password && server_.password.empty() &&
           static_cast<bool>(options_.ask_password);
}

bool login::may_ask_again(unsigned attempts) const
{
    return asks() && attempts < most_questions;
}

bool login::provide_password(const curl_ptr& handle, unsigned attempt)
{
    if (!asks()) {
        return true;
    }
    const auto given = options_.ask_password(attempt);
    if (given) {
        check_text(*given, "the password");
        mask_secret(*given);
        setopt(handle, CURLOPT_PASSWORD, *given);
    }
    return given.has_value();
}

} // namespace qrftp::ftp

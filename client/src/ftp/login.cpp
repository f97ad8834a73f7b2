#include "login.hpp"

#include "local_file.hpp"
#include "names.hpp"

#include <foundation/core/except/Exception.hpp>
#include <foundation/log/sink.hpp>
#include <zorbel/io/ftp/core/connect.hpp>
#include <zorbel/io/ftp/core/set_option.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>

namespace qrftp {

namespace core = zorbel::io::ftp::core;
namespace files = zorbel::io::common::file;
namespace fs = std::filesystem;
using core::set_option;
using foundation::core::except::raise;

namespace {

constexpr const char* anonymous = "anonymous";
constexpr const char* rsa = "ssh-rsa";

std::string user_of(const url& location, const options& how)
{
    const std::string& named = how.user.empty() ? location.user : how.user;
    return named.empty() && !location.sftp ? anonymous : named;
}

std::string password_of(const url& location, const options& how)
{
    return how.password.value_or(location.password);
}

fs::path default_known_hosts()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read only
    const char* const home = std::getenv("HOME");
    return home == nullptr ? fs::path() : fs::path(home) / ".ssh" / "known_hosts";
}

bool is_rsa_key(const fs::path& private_key)
{
    fs::path public_key = private_key;
    public_key += ".pub";
    std::string first;
    std::string other;
    std::getline(std::ifstream(private_key), first);
    std::getline(std::ifstream(public_key), other);
    return first.find("BEGIN RSA") != std::string::npos || other.starts_with(rsa);
}

/// The best of the known keys that this libcurl can check: old RSA signatures are refused by newer servers.
const host_key& best_of(const std::vector<host_key>& keys)
{
    const auto is_rsa = [](const host_key& key) { return key.type == rsa; };
    const auto better = std::find_if_not(keys.begin(), keys.end(), is_rsa);
    return better == keys.end() ? keys.front() : *better;
}

long milliseconds(std::chrono::milliseconds time)
{
    return static_cast<long>(time.count());
}

} // namespace

void set_text(core::curl_ptr& connection, CURLoption option, const std::string& text)
{
    connection.throw_if_null();
    if (curl_easy_setopt(connection.get(), option, text.c_str()) == CURLE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
}

login::login(const url& location, const options& how)
    : location_(location), how_(how),
      known_hosts_(how.known_hosts_file.empty() ? default_known_hosts() : how.known_hosts_file)
{
    names::check(location.host, "the host name");
    names::check(user_of(location, how), "the user name");
    names::check(password_of(location, how), "the password");
    names::check(how.pass_phrase, "the pass phrase");
    foundation::log::mask_secret(password_of(location, how));
    foundation::log::mask_secret(how.pass_phrase);
}

login::~login()
{
    if (!preferred_.empty()) {
        std::error_code ignored; // It holds nothing secret, and the system's temporary folder is emptied.
        fs::remove(preferred_, ignored);
    }
}

void login::set_up(core::curl_ptr& connection)
{
    set_text(connection, CURLOPT_PROTOCOLS_STR, "ftp,sftp");
    set_option(connection, CURLOPT_NOSIGNAL, 1L);
    // libcurl keeps an entry for every port that it has connected to, and walks through them all on each
    // request.
    set_option(connection, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
    set_option(connection, CURLOPT_MAXCONNECTS, 1L); // a connection that is given up is not taken up again
    set_option(connection, CURLOPT_TCP_KEEPALIVE, 1L);
    set_option(connection, CURLOPT_PATH_AS_IS, 1L);
    set_option(connection, CURLOPT_BUFFERSIZE, how_.receive_buffer);
    set_option(connection, CURLOPT_UPLOAD_BUFFERSIZE, how_.send_buffer);
    set_text(connection, CURLOPT_USERNAME, user_of(location_, how_));
    set_text(connection, CURLOPT_PASSWORD, password_of(location_, how_));
    set_option(connection, CURLOPT_PORT, static_cast<long>(location_.port));
    set_option(connection, CURLOPT_LOW_SPEED_LIMIT, 1L);
    set_option(connection, CURLOPT_LOW_SPEED_TIME, static_cast<long>(how_.stall_timeout.count()));
    core::connection_timeout(connection, milliseconds(how_.connect_timeout));
    core::transfer_timeout(connection, milliseconds(how_.total_timeout));
    set_text(connection, CURLOPT_PROXY, ""); // not what the environment says to libcurl
    if (how_.use_proxy) {
        core::configure_proxy(connection);
    }
    location_.sftp ? set_up_sftp(connection) : set_up_ftp(connection);
}

void login::set_up_ftp(core::curl_ptr& connection)
{
    const bool secret = user_of(location_, how_) != anonymous;
    const long ssl = how_.tls == tls_mode::none                       ? CURLUSESSL_NONE
                     : how_.tls == tls_mode::opportunistic && !secret ? CURLUSESSL_TRY
                                                                      : CURLUSESSL_ALL;
    set_option(connection, CURLOPT_USE_SSL, ssl);
    set_option(connection, CURLOPT_FTPSSLAUTH, static_cast<long>(CURLFTPAUTH_TLS));
    set_option(connection, CURLOPT_SSL_VERIFYPEER, 1L);
    set_option(connection, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!how_.certificate_authorities.empty()) {
        // libcurl would call a file that it cannot read a bad certificate.
        files::file_system()->open(how_.certificate_authorities, files::OpenMode::read)->close();
        set_text(connection, CURLOPT_CAINFO, how_.certificate_authorities.string());
        set_option(connection, CURLOPT_CAPATH, nullptr); // the system's would be trusted as well
    }
    // With TLS 1.3 libcurl 7.88 can cut the end of an upload off, unnoticed, and reuses no TLS session from the
    // second data connection on, without which many servers refuse it.
    long versions = CURL_SSLVERSION_TLSv1_2;
    if (curl_version_info(CURLVERSION_NOW)->version_num < 0x080000) {
        versions |= CURL_SSLVERSION_MAX_TLSv1_2;
    }
    set_option(connection, CURLOPT_SSLVERSION, versions);
    if (how_.active) {
        set_text(connection, CURLOPT_FTPPORT, "-");
    }
    set_option(connection, CURLOPT_FTP_SKIP_PASV_IP, 1L); // a server may not send its clients elsewhere
    set_option(connection, CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(how_.stall_timeout.count()));
}

void login::set_up_sftp(core::curl_ptr& connection)
{
    set_option(connection, CURLOPT_SSH_HOSTKEYFUNCTION, &login::host_key_callback);
    set_option(connection, CURLOPT_SSH_HOSTKEYDATA, this);
    prefer_known_keys(connection);
    if (how_.private_key.empty()) {
        set_option(connection, CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PASSWORD | CURLSSH_AUTH_KEYBOARD);
        return;
    }
    fs::path public_key = how_.public_key;
    if (public_key.empty()) {
        fs::path beside = how_.private_key;
        beside += ".pub";
        public_key = fs::exists(beside) ? beside : fs::path();
    }
    set_option(connection, CURLOPT_SSH_AUTH_TYPES, static_cast<long>(CURLSSH_AUTH_PUBLICKEY));
    set_text(connection, CURLOPT_SSH_PRIVATE_KEYFILE, how_.private_key.string());
    if (!public_key.empty()) {
        set_text(connection, CURLOPT_SSH_PUBLIC_KEYFILE, public_key.string());
    }
    set_text(connection, CURLOPT_KEYPASSWD, how_.pass_phrase);
}

/// A server has keys of several types and shows the one that the client asks for first. libcurl asks for the
/// type that it finds in a known-hosts file, but takes the first hashed line for this host's, whatever host it
/// is about: it gets a file that holds this host's line only.
void login::prefer_known_keys(core::curl_ptr& connection)
{
    if (how_.host_keys == host_key_check::off) {
        return;
    }
    const auto keys = known_hosts::read(known_hosts_).keys_of(known_hosts_name(location_.host, location_.port));
    if (keys.empty()) {
        return;
    }
    host_key key = best_of(keys);
    rsa_only_ = key.type == rsa;
    if (rsa_only_) {
        return; // A server that has no other key shows it anyway.
    }
    key.host = "[" + location_.host + "]:" + std::to_string(location_.port);
    asked_for_ = key.type;
    preferred_ = fs::temp_directory_path() / names::temporary();
    const auto file = files::file_system()->open(preferred_, files::OpenMode::create);
    const std::string line = key.line() + '\n';
    write_all(*file, preferred_, line);
    file->close();
    set_text(connection, CURLOPT_SSH_KNOWNHOSTS, preferred_.string());
}

std::string login::hint(int code) const
{
    if (code == CURLE_LOGIN_DENIED && is_rsa_key(how_.private_key)) {
        return "; an RSA key does not work with servers from OpenSSH 8.8 on and this libssh2, an Ed25519 or "
               "ECDSA "
               "key does";
    }
    return {};
}

void login::check(const host_key& shown)
{
    key_ = shown;
    refusal_ = nullptr;
    if (how_.host_keys == host_key_check::off) {
        return;
    }
    const std::string said = "it shows " + shown.type + ' ' + shown.fingerprint();
    switch (known_hosts::read(known_hosts_).match(shown)) {
    case host_key_match::known:
        return;
    case host_key_match::revoked:
        raise<error::HostKeyRevoked>(shown.host, said);
    case host_key_match::changed:
        raise<error::HostKeyChanged>(shown.host, said + ", and " + known_hosts_.string() + " has another");
    case host_key_match::other_type:
        raise<error::HostKeyChanged>(
            shown.host,
            said + ", and " + known_hosts_.string() +
                (rsa_only_ ? " has only an RSA key of this host, which newer servers no longer show to "
                             "this libssh2: if the fingerprint is right, add this key"
                           : " has one of another type"));
    case host_key_match::unknown:
        break;
    }
    if (how_.host_keys == host_key_check::strict) {
        raise<error::HostKeyUnknown>(shown.host, said + ", and " + known_hosts_.string() + " has none");
    }
    if (how_.confirm_host_key && !how_.confirm_host_key(shown)) {
        raise<error::HostKeyUnknown>(shown.host, said + ", and was not accepted");
    }
    known_hosts::append(known_hosts_, shown);
}

int login::host_key_callback(void* self, int /*type*/, const char* blob, std::size_t size) noexcept
{
    auto& mine = *static_cast<login*>(self);
    try {
        const std::string bytes(blob, size);
        mine.check({known_hosts_name(mine.location_.host, mine.location_.port), std::string(type_of_key(bytes)),
                    bytes});
        return CURLKHMATCH_OK;
    } catch (...) {
        mine.refusal_ = std::current_exception();
        return CURLKHMATCH_MISMATCH;
    }
}

} // namespace qrftp

#include "trace.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/ftp/core/connect.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/folders.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>
#include <zorbel/io/ftp/core/request.hpp>
#include <zx/warning.hpp>

#include <tuple>

namespace zorbel::io::ftp::core {

using foundation::core::except::raise;
using namespace ZORBEL::io::ftp::ftp;

namespace {

/// The length of "ftp://".
constexpr std::size_t scheme_length = 6;

[[noreturn]] void fail_to_connect(CURLcode code, const std::string& url, long port)
{
    if (code == CURLE_LOGIN_DENIED) {
        raise<BadLogin>(url);
    }
    raise<NoConnection>(url, std::to_string(port));
}

/// libcurl's write callback for bodies that nobody wants.
std::size_t drop_callback(char* /*data*/, std::size_t size, std::size_t count, void* /*user*/) noexcept
{
    return size * count;
}

long use_ssl(const std::string& tls_mode)
{
    if (tls_mode == "none") {
        return CURLUSESSL_NONE;
    }
    if (tls_mode == "opportunistic") {
        return CURLUSESSL_TRY;
    }
    if (tls_mode == "strict") {
        return CURLUSESSL_ALL;
    }
    raise<InternalError>("TLSMode", "Unrecognized option: " + tls_mode);
}

/// Tries the server's root after the folder of choice failed, and warns with `warning` that it has come to
/// that.
void request_root(curl_ptr& connection, const std::string& root_url, long port, const char* warning)
{
    set_option(connection, CURLOPT_URL, root_url.c_str());
    const CURLcode code = scoped_request(connection).setopt(CURLOPT_NOBODY, 1L, 0).perform().first;
    log(level::info, "Response from second request to connect to root folder: ", static_cast<long>(code));
    if (code != CURLE_OK) {
        fail_to_connect(code, root_url, port);
    }
    zxWarningMsgId(component, warning);
}

/// Settles an FTP connection whose folder was refused at the server's root.
void fall_back_to_root(curl_ptr& connection, const std::string& server_url, long port)
{
    const std::string server = server_url.substr(scheme_length);
    const std::size_t slash = server.find('/');
    if (slash == std::string::npos) {
        fail_to_connect(CURLE_REMOTE_ACCESS_DENIED, server_url, port);
    }
    const std::string root_url = "ftp://" + server.substr(0, slash);
    request_root(connection, root_url, port, "CouldNotLoginToRemoteFolder");
    cd(connection, add_trailing_slash(root_url) + add_trailing_slash(pwd(connection)));
}

void use_keys(curl_ptr& connection, const std::string& public_key_file, const std::string& private_key_file)
{
    set_option(connection, CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
    set_option(connection, CURLOPT_SSH_PUBLIC_KEYFILE, public_key_file.c_str());
    set_option(connection, CURLOPT_SSH_PRIVATE_KEYFILE, private_key_file.c_str());
}

} // namespace

std::string connect(curl_ptr& connection, const std::string& server_url, const std::string& user_name,
                    const std::string& password, long port, const std::string& connection_mode,
                    const std::string& tls_mode, bool use_proxy, const std::string& certificate_authority_file,
                    bool verify_peer, bool verify_host, long low_speed_limit, long low_speed_time)
{
    const scope_trace trace;
    if (use_proxy) {
        configure_proxy(connection);
    }
    if (connection_mode == "active") {
        set_option(connection, CURLOPT_FTPPORT, "-");
    }
    set_option(connection, CURLOPT_URL, add_trailing_slash(server_url).c_str());
    set_option(connection, CURLOPT_USERNAME, user_name.c_str());
    set_option(connection, CURLOPT_PASSWORD, password.c_str());
    set_option(connection, CURLOPT_PORT, port);
    set_option(connection, CURLOPT_SSL_VERIFYHOST, verify_host ? 1L : 0L);
    set_option(connection, CURLOPT_SSL_VERIFYPEER, verify_peer ? 1L : 0L);
    set_option(connection, CURLOPT_LOW_SPEED_LIMIT, low_speed_limit);
    set_option(connection, CURLOPT_LOW_SPEED_TIME, low_speed_time);
    set_option(connection, CURLOPT_CAINFO, certificate_authority_file.c_str());
    set_option(connection, CURLOPT_USE_SSL, use_ssl(tls_mode));

    const CURLcode code = scoped_request(connection)
                              .setopt(CURLOPT_NOBODY, 1L, 0)
                              .setopt(CURLOPT_WRITEFUNCTION, &drop_callback, nullptr)
                              .perform()
                              .first;
    if (code == CURLE_REMOTE_ACCESS_DENIED) {
        fall_back_to_root(connection, server_url, port);
    } else if (code != CURLE_OK) {
        fail_to_connect(code, server_url, port);
    }

    // After a fall-back this leads back to the folder that was refused, and so to NoSuchDirectory: the
    // fall-back only tells a server that cannot be reached from a folder that cannot be entered.
    const std::string home_folder = pwd(connection);
    const bool names_folder = server_url.substr(scheme_length).find('/') != std::string::npos;
    const std::string starting_url =
        add_trailing_slash(server_url) + (names_folder ? std::string() : add_trailing_slash(home_folder));
    return cd(connection, starting_url);
}

std::string connect_helper(curl_ptr& connection, const std::string& host_name, const std::string& user_name,
                           long port, bool use_proxy, const std::string& starting_folder,
                           const std::string& certificate_authority_file, bool verify_peer, bool verify_host,
                           long low_speed_limit, long low_speed_time, bool root_start)
{
    const scope_trace trace;
    if (use_proxy) {
        configure_proxy(connection);
    }
    const std::string base_url = "sftp://" + host_name;
    const bool has_folder = !starting_folder.empty() && starting_folder != "/~/";
    const auto folder_path = [&] {
        return (starting_folder.starts_with('/') ? "" : "/") +
               percent_encode_path(connection, add_trailing_slash(starting_folder));
    };
    const std::string first_path = has_folder ? folder_path() : root_start ? "" : "/~";
    set_option(connection, CURLOPT_URL, (base_url + first_path).c_str());
    set_option(connection, CURLOPT_USERNAME, user_name.c_str());
    set_option(connection, CURLOPT_PORT, port);
    set_option(connection, CURLOPT_SSL_VERIFYHOST, verify_host ? 1L : 0L);
    set_option(connection, CURLOPT_SSL_VERIFYPEER, verify_peer ? 1L : 0L);
    set_option(connection, CURLOPT_CAINFO, certificate_authority_file.c_str());
    set_option(connection, CURLOPT_LOW_SPEED_LIMIT, low_speed_limit);
    set_option(connection, CURLOPT_LOW_SPEED_TIME, low_speed_time);
    set_option(connection, CURLOPT_DIRLISTONLY, 1L);

    CURLcode code = scoped_request(connection).setopt(CURLOPT_NOBODY, 1L, 0).perform().first;
    log(level::info, "Response from first request to connect to home folder: ", static_cast<long>(code));
    if (has_folder) {
        std::string listing;
        std::tie(code, listing) = sftp_is_folder(connection, folder_path(), true);
        // The result is both: the code, which the two other requests log too, and what was listed.
        log(level::info, "Response from request to connect to login folder: ", static_cast<long>(code), ' ',
            listing);
        if (code == CURLE_COULDNT_RESOLVE_HOST) {
            raise<NoConnectionToStartingFolder>(host_name, std::to_string(port));
        }
        if (code == CURLE_LOGIN_DENIED) {
            raise<BadLogin>(host_name);
        }
    }
    if (code != CURLE_OK) {
        request_root(connection, base_url, port, "CouldNotDetermineHomeFolder");
    }
    std::string folder = pwd(connection);
    log(level::info, "Current working folder on SFTP server:  ", folder);
    return folder;
}

std::string connect_with_password(curl_ptr& connection, const std::string& host_name,
                                  const std::string& user_name, long port, const std::string& password,
                                  bool use_proxy, const std::string& starting_folder,
                                  const std::string& certificate_authority_file, bool verify_peer,
                                  bool verify_host, long low_speed_limit, long low_speed_time, bool root_start)
{
    const scope_trace trace;
    set_option(connection, CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PASSWORD);
    set_option(connection, CURLOPT_PASSWORD, password.c_str());
    return connect_helper(connection, host_name, user_name, port, use_proxy, starting_folder,
                          certificate_authority_file, verify_peer, verify_host, low_speed_limit, low_speed_time,
                          root_start);
}

// Callers pass the key material by value.
// NOLINTBEGIN(performance-unnecessary-value-param)
std::string connect_with_keys(curl_ptr& connection, const std::string& host_name, const std::string& user_name,
                              long port, std::string public_key_file, std::string private_key_file,
                              bool use_proxy, const std::string& starting_folder,
                              const std::string& certificate_authority_file, bool verify_peer, bool verify_host,
                              long low_speed_limit, long low_speed_time, bool root_start)
{
    const scope_trace trace;
    use_keys(connection, public_key_file, private_key_file);
    return connect_helper(connection, host_name, user_name, port, use_proxy, starting_folder,
                          certificate_authority_file, verify_peer, verify_host, low_speed_limit, low_speed_time,
                          root_start);
}

std::string connect_with_passphrase(curl_ptr& connection, const std::string& host_name,
                                    const std::string& user_name, long port, std::string public_key_file,
                                    std::string private_key_file, std::string pass_phrase, bool use_proxy,
                                    const std::string& starting_folder,
                                    const std::string& certificate_authority_file, bool verify_peer,
                                    bool verify_host, long low_speed_limit, long low_speed_time,
                                    bool root_start)
{
    const scope_trace trace;
    use_keys(connection, public_key_file, private_key_file);
    set_option(connection, CURLOPT_KEYPASSWD, pass_phrase.c_str());
    return connect_helper(connection, host_name, user_name, port, use_proxy, starting_folder,
                          certificate_authority_file, verify_peer, verify_host, low_speed_limit, low_speed_time,
                          root_start);
}

// NOLINTEND(performance-unnecessary-value-param)

void transfer_timeout(curl_ptr& connection, long milliseconds)
{
    const scope_trace trace;
    set_option(connection, CURLOPT_TIMEOUT_MS, milliseconds);
}

void connection_timeout(curl_ptr& connection, long milliseconds)
{
    const scope_trace trace;
    set_option(connection, CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
}

} // namespace zorbel::io::ftp::core

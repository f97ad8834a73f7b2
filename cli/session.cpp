#include "session.hpp"

#include "prompt.hpp"

#include <foundation/log/sink.hpp>
#include <zorbel/io/ftp/core.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>

namespace qrftp::cli {

namespace core = zorbel::io::ftp::core;

namespace {

/// Both ways; libcurl's own are small enough to slow SFTP down on every line with a delay.
constexpr long buffer_size = 2L * 1024 * 1024;

/// A transfer below one byte a second for this long is stalled.
constexpr long stall_seconds = 60;

using url_handle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

std::string url_part(CURLU* url, CURLUPart part, unsigned flags)
{
    char* text = nullptr;
    const CURLUcode code = curl_url_get(url, part, &text, flags);
    if (code == CURLUE_URLDECODE) {
        throw usage_error("The URL holds a control character, which no server takes in a name.");
    }
    if (code != CURLUE_OK) {
        return {}; // The URL has no such part.
    }
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return text;
}

/// Refuses what would end a command and begin another.
void refuse_control_characters(const std::string& text, const char* what)
{
    if (std::any_of(text.begin(), text.end(),
                    [](unsigned char byte) { return byte < ' ' || byte == '\x7f'; })) {
        throw usage_error(std::string(what) + " holds a control character.");
    }
}

std::string ask_password(const remote& target, const std::string& user)
{
    std::string password = !target.password.empty()
                               ? target.password
                               : secret("QRFTP_PASSWORD", "Password for " + user + "@" + target.host);
    refuse_control_characters(password, "The password");
    return password;
}

std::string open_ftp(core::curl_ptr& connection, const remote& target, const login_options& options,
                     const std::string& user)
{
    const std::string password = user == "anonymous" ? target.password : ask_password(target, user);
    std::string authorities = options.certificate_authority_file;
    if (authorities.empty()) {
        const char* system = nullptr;
        curl_easy_getinfo(connection.get(), CURLINFO_CAINFO, &system);
        authorities = system == nullptr ? "" : system;
    }
    return core::connect(connection, "ftp://" + target.host, user, password, target.port,
                         options.active ? "active" : "passive", options.tls, options.proxy, authorities, true,
                         true, 1, stall_seconds);
}

std::string open_sftp(core::curl_ptr& connection, const remote& target, const login_options& options,
                      const std::string& user)
{
    if (options.known_hosts.empty()) {
        std::cerr << "Warning: the server's host key is not checked; --known-hosts FILE checks it.\n";
    } else {
        core::set_option(connection, CURLOPT_SSH_KNOWNHOSTS, options.known_hosts.c_str());
    }
    if (options.key.empty()) {
        return core::connect_with_password(connection, target.host, user, target.port,
                                           ask_password(target, user), options.proxy, "", "", true, true, 1,
                                           stall_seconds, false);
    }
    // Without a public key file, libssh2 derives the public key from the private one.
    const std::string neighbour = options.key + ".pub";
    const std::string public_key = !options.public_key.empty()          ? options.public_key
                                   : std::filesystem::exists(neighbour) ? neighbour
                                                                        : std::string();
    if (options.key_has_pass_phrase) {
        return core::connect_with_passphrase(connection, target.host, user, target.port, public_key,
                                             options.key,
                                             secret("QRFTP_PASSPHRASE", "Pass phrase for " + options.key),
                                             options.proxy, "", "", true, true, 1, stall_seconds, false);
    }
    return core::connect_with_keys(connection, target.host, user, target.port, public_key, options.key,
                                   options.proxy, "", "", true, true, 1, stall_seconds, false);
}

} // namespace

void add_login_options(CLI::App& command, login_options& options)
{
    command.add_option("-u,--user", options.user, "User name; else the URL's, else anonymous or $USER");
    command.add_option("--tls", options.tls, "FTP: none, opportunistic or strict")
        ->check(CLI::IsMember({"none", "opportunistic", "strict"}))
        ->capture_default_str();
    command.add_option("--cacert", options.certificate_authority_file,
                       "FTP: certificate authorities to trust (PEM); else the system's");
    command.add_flag("--active", options.active, "FTP: active instead of passive mode");
    command.add_option("--key", options.key, "SFTP: private key file, instead of a password");
    command.add_option("--public-key", options.public_key,
                       "SFTP: public key file; else KEY.pub where there is one");
    command.add_flag("--pass-phrase", options.key_has_pass_phrase,
                     "SFTP: the key has a pass phrase: $QRFTP_PASSPHRASE, else asked for");
    command.add_option("--known-hosts", options.known_hosts,
                       "SFTP: refuse servers whose host key is not in this file");
    command.add_flag("--proxy", options.proxy,
                     "Go through the HTTP proxy that http_proxy or https_proxy names");
    command.add_flag("-v,--verbose", options.verbose, "Show the dialogue with the server");
}

remote parse_url(const std::string& url)
{
    const url_handle parsed(curl_url(), &curl_url_cleanup);
    const CURLUcode code = curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME);
    if (code != CURLUE_OK) {
        throw usage_error("\"" + url + "\" is not a URL that can be used: " + curl_url_strerror(code) + ".");
    }
    const std::string scheme = url_part(parsed.get(), CURLUPART_SCHEME, 0);
    if (scheme != "ftp" && scheme != "sftp") {
        throw usage_error("\"" + url + "\" begins with neither ftp:// nor sftp://.");
    }
    remote target;
    target.sftp = scheme == "sftp";
    target.host = url_part(parsed.get(), CURLUPART_HOST, 0);
    target.port = std::stol(url_part(parsed.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT));
    target.user = url_part(parsed.get(), CURLUPART_USER, CURLU_URLDECODE);
    target.password = url_part(parsed.get(), CURLUPART_PASSWORD, CURLU_URLDECODE);
    target.path = url_part(parsed.get(), CURLUPART_PATH, CURLU_URLDECODE);
    if (!target.sftp || target.path == "/") {
        target.path.erase(0, 1); // The slash behind the host only separates; one more makes the path absolute.
    }
    foundation::log::mask_secret(target.password);
    return target;
}

std::string open(core::curl_ptr& connection, const remote& target, const login_options& options)
{
    if (options.verbose) {
        core::getLogger().enable_levels(core::level::message | core::level::info);
    }
    core::set_option(connection, CURLOPT_BUFFERSIZE, buffer_size);
    core::set_option(connection, CURLOPT_UPLOAD_BUFFERSIZE, buffer_size);
    core::set_option(connection, CURLOPT_NOSIGNAL, 1L);
    // With TLS 1.3 libcurl 7.88 can cut the end of an upload off, unnoticed, and reuses no TLS session from the
    // second data connection on, without which many servers refuse it.
    if (curl_version_info(CURLVERSION_NOW)->version_num < 0x080000) {
        core::set_option(connection, CURLOPT_SSLVERSION, CURL_SSLVERSION_MAX_TLSv1_2);
    }
    // libcurl 7.88 can wait for this timer when it opens an FTP data connection, 200 ms by default.
    core::set_option(connection, CURLOPT_HAPPY_EYEBALLS_TIMEOUT_MS, 10L);
    std::string user = !options.user.empty() ? options.user : target.user;
    refuse_control_characters(user, "The user name");
    if (!target.sftp) {
        return open_ftp(connection, target, options, user.empty() ? "anonymous" : user);
    }
    if (user.empty()) {
        const char* own = std::getenv("USER"); // NOLINT(concurrency-mt-unsafe): one thread
        user = own == nullptr ? "" : own;
    }
    return open_sftp(connection, target, options, user);
}

} // namespace qrftp::cli

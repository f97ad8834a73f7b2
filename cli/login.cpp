#include "login.hpp"

#include "interrupt.hpp"
#include "output.hpp"
#include "password.hpp"
#include "terminal.hpp"

#include <foundation/log/sink.hpp>
#include <zorbel/io/common/file/FileSystem.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <algorithm>
#include <chrono>
#include <map>

namespace qrftp::cli {

using zorbel::io::common::file::read_whole_file;

namespace fs = std::filesystem;

namespace {

const std::map<std::string, tls_mode> tls_modes{
    {"none", tls_mode::none}, {"opportunistic", tls_mode::opportunistic}, {"strict", tls_mode::strict}};
const std::map<std::string, host_key_check> host_key_checks{{"strict", host_key_check::strict},
                                                            {"accept-new", host_key_check::accept_new},
                                                            {"off", host_key_check::off}};

std::string secret(std::string text)
{
    foundation::log::mask_secret(text);
    return text;
}

/// Where the password stands in a URL, for one that cannot be taken apart, too.
std::string written_password(const std::string& word)
{
    const auto start = word.find("://");
    const auto end = start == std::string::npos ? start : word.rfind('@');
    const auto colon = start == std::string::npos ? start : word.find(':', start + 3);
    return end == std::string::npos || colon >= end ? "" : word.substr(colon + 1, end - colon - 1);
}

std::chrono::milliseconds to_milliseconds(double seconds)
{
    return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

bool accept_host_key(const host_key& key, const settings& how)
{
    const std::string shown = key.type + " " + key.fingerprint();
    const auto answer = ask_yes_or_no("The host " + printable(key.host) + " is not known yet. Its key is\n  " +
                                      shown + "\nAccept and remember it? [y/N] ");
    if (!answer) {
        note(how, "The key of the new host " + printable(key.host) + " is remembered: " + shown);
    }
    return answer.value_or(true);
}

options connection_options(const login_options& given, const settings& how)
{
    options wanted;
    wanted.tls = tls_modes.at(given.tls);
    wanted.certificate_authorities = given.certificate_authorities;
    wanted.active = given.active;
    wanted.use_proxy = given.proxy;
    wanted.host_keys = host_key_checks.at(given.host_key);
    wanted.known_hosts_file = expand_home(given.known_hosts);
    wanted.confirm_host_key = [how](const host_key& key) { return accept_host_key(key, how); };
    wanted.connect_timeout = to_milliseconds(given.connect_timeout);
    wanted.stall_timeout = std::chrono::seconds(given.stall_timeout);
    wanted.total_timeout = to_milliseconds(given.timeout);
    wanted.cancelled = interrupted;
    return wanted;
}

std::optional<netrc_entry> look_up_netrc(const login_options& given, const url& where, const std::string& user,
                                         const settings& how)
{
    const fs::path file = expand_home(given.netrc_file);
    if (given.netrc_file == login_options().netrc_file && !fs::exists(file)) {
        return {};
    }
    auto entry = find_in_netrc(read_whole_file(file), where.host, user);
    constexpr auto others = fs::perms::group_read | fs::perms::others_read;
    if (entry && (fs::status(file).permissions() & others) != fs::perms::none) {
        note(how, "Warning: others can read " + file.string() + ", which holds passwords.");
    }
    return entry;
}

std::optional<std::string> ask_password(const options& wanted, const url& where)
{
    return ask_secret("Password for " + printable(wanted.user + "@" + where.host) + ": ");
}

/// The user, and the password of the first source that has one, but for the terminal.
void find_user_and_password(options& wanted, const url& where, const login_options& given, const settings& how)
{
    wanted.user = !given.user.empty() ? given.user : where.user;
    const auto netrc = look_up_netrc(given, where, wanted.user, how);
    if (wanted.user.empty() && netrc) {
        wanted.user = netrc->login;
    }
    const bool anonymous = !where.sftp && (wanted.user.empty() || wanted.user == "anonymous");
    if (!where.password.empty()) {
        wanted.password = where.password;
    } else if (!given.password_file.empty()) {
        wanted.password = secret(first_line(expand_home(given.password_file)));
    } else if (const auto value = environment("QRFTP_PASSWORD"); value && !anonymous) {
        wanted.password = secret(*value);
    } else if (netrc && !netrc->password.empty()) {
        wanted.password = secret(netrc->password);
    } else if (anonymous) {
        wanted.password = "";
    }
    if (where.sftp && wanted.user.empty()) {
        wanted.user = own_name();
    }
}

/// Without a terminal, a key that nobody named may stay locked; false says so.
bool use_key(options& wanted, const fs::path& key, const login_options& given, bool must)
{
    if (is_encrypted(key)) {
        std::optional<std::string> phrase = !given.pass_phrase_file.empty()
                                                ? first_line(expand_home(given.pass_phrase_file))
                                                : environment("QRFTP_PASSPHRASE");
        if (!phrase) {
            phrase = ask_secret("Pass phrase for " + printable(key.string()) + ": ");
        }
        if (!phrase && must) {
            throw no_secret("There is no pass phrase for the key " + key.string() +
                            ": give one in --pass-phrase-file or QRFTP_PASSPHRASE, or at a terminal.");
        }
        if (!phrase) {
            return false;
        }
        wanted.pass_phrase = secret(*std::move(phrase));
    }
    wanted.private_key = key;
    wanted.public_key = given.public_key.empty() ? fs::path() : expand_home(given.public_key);
    return true;
}

bool use_default_key(options& wanted, const login_options& given)
{
    for (const char* name : {"id_ed25519", "id_ecdsa", "id_rsa"}) {
        const fs::path key = expand_home(std::string("~/.ssh/") + name);
        if (fs::exists(key)) {
            return use_key(wanted, key, given, false);
        }
    }
    return false;
}

void add_seconds(CLI::App& command, const char* name, double& seconds, const char* help)
{
    command.add_option(name, seconds, help)
        ->check(CLI::Range(0.0, 1e9).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
}

} // namespace

void add_login_options(CLI::App& command, login_options& given)
{
    command.option_defaults()->group("Connection");
    command
        .add_option("-u,--user", given.user, "User name; else the URL's, ~/.netrc's, anonymous or (SFTP) $USER")
        ->type_name("NAME");
    command.add_option("--password-file", given.password_file, "File whose first line is the password")
        ->type_name("FILE");
    command.add_option("--netrc-file", given.netrc_file, "File with logins of hosts")
        ->type_name("FILE")
        ->capture_default_str();
    command.add_option("--tls", given.tls, "FTP: none, opportunistic or strict")
        ->check(CLI::IsMember({"none", "opportunistic", "strict"}).description(""))
        ->type_name("MODE")
        ->capture_default_str();
    command
        .add_option("--cacert", given.certificate_authorities,
                    "FTP: certificate authorities to trust (PEM); else the system's")
        ->type_name("FILE");
    command.add_flag("--active", given.active, "FTP: the server opens the data connections");
    command.add_flag("--proxy", given.proxy, "Go through the HTTP proxy that http_proxy or https_proxy names");
    command.add_option("--key", given.key, "SFTP: private key; else a password, else a key of ~/.ssh")
        ->type_name("FILE");
    command.add_option("--public-key", given.public_key, "SFTP: public key; else KEY.pub where there is one")
        ->type_name("FILE");
    command
        .add_option("--pass-phrase-file", given.pass_phrase_file,
                    "SFTP: file whose first line opens the private key")
        ->type_name("FILE");
    command.add_option("--host-key", given.host_key, "SFTP: strict, accept-new or off")
        ->check(CLI::IsMember({"strict", "accept-new", "off"}).description(""))
        ->type_name("CHECK")
        ->capture_default_str();
    command.add_option("--known-hosts", given.known_hosts, "SFTP: the file of known host keys")
        ->type_name("FILE")
        ->capture_default_str();
    add_seconds(command, "--connect-timeout", given.connect_timeout, "Time for connecting");
    command.add_option("--stall-timeout", given.stall_timeout, "Time without data; 0 for no limit")
        ->type_name("SECONDS")
        ->capture_default_str();
    add_seconds(command, "--timeout", given.timeout, "Time for each request as a whole; 0 for no limit");
    command.option_defaults()->group("Options");
}

bool is_url(const std::string& word)
{
    const auto end = word.find("://");
    return end != std::string::npos && end > 0 && word.find('/') > end;
}

url parse_urls(const std::vector<std::string>& words, std::vector<std::string>& paths, const settings& how)
{
    url first;
    for (const std::string& word : words) {
        secret(written_password(word));
        const url one = url::parse(word);
        if (!secret(one.password).empty() && first.password.empty()) {
            note(how, "Warning: others on this computer can see a password that is part of a URL.");
        }
        if (paths.empty()) {
            first = one;
        } else if (one.server() != first.server() || one.user != first.user) {
            throw usage_error("All URLs must be of the same server and user.");
        }
        paths.push_back(one.path);
    }
    return first;
}

session open(const url& where, const login_options& given, const settings& how)
{
    options wanted = connection_options(given, how);
    find_user_and_password(wanted, where, given, how);
    bool default_key = false;
    if (where.sftp && !given.key.empty()) {
        use_key(wanted, expand_home(given.key), given, true);
    } else if (!wanted.password) {
        default_key = where.sftp && use_default_key(wanted, given);
        wanted.password = default_key ? std::nullopt : ask_password(wanted, where);
        if (!default_key && !wanted.password) {
            throw no_secret("There is no password for " + wanted.user + "@" + where.host +
                            ": give one in --password-file, QRFTP_PASSWORD or ~/.netrc, or at a terminal.");
        }
    }
    try {
        return {where, wanted};
    } catch (const error::LoginRefused&) {
        wanted.private_key.clear();
        wanted.password = default_key ? ask_password(wanted, where) : std::nullopt;
        if (!wanted.password) {
            throw;
        }
    }
    return {where, wanted};
}

} // namespace qrftp::cli

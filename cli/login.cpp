#include "login.hpp"

#include "credentials.hpp"
#include "environment.hpp"
#include "interrupt.hpp"
#include "login_dialogue.hpp"
#include "output.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace qrftp::cli {

namespace fs = std::filesystem;

namespace {

const std::map<std::string, tls_mode> tls_modes{
    {"none", tls_mode::none}, {"opportunistic", tls_mode::opportunistic}, {"strict", tls_mode::strict}};
const std::map<std::string, certificate_trust> certificate_trusts{
    {"strict", certificate_trust::strict}, {"accept-new", certificate_trust::accept_new}};
const std::map<std::string, host_key_check> host_key_checks{{"strict", host_key_check::strict},
                                                            {"accept-new", host_key_check::accept_new},
                                                            {"off", host_key_check::off}};

std::optional<std::string> masked_secret(std::optional<std::string> secret)
{
    if (secret && !secret->empty()) {
        mask_secret(*secret);
    }
    return secret;
}

std::chrono::milliseconds to_milliseconds(double seconds)
{
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(seconds * 1000));
}

void warn_if_readable(const fs::path& file, const settings& settings)
{
    constexpr auto others = fs::perms::group_read | fs::perms::others_read;
    std::error_code ignored;
    const fs::file_status found = fs::status(file, ignored);
    if (fs::is_regular_file(found) && (found.permissions() & others) != fs::perms::none) {
        note(settings,
             fmt::format("Warning: others can read {}, which holds a password.", escape(file.string())));
    }
}

/// The server's entry of the netrc file. One that nobody named may be missing or unreadable.
std::optional<netrc_entry> look_up_netrc(const login_options& options, const credential_sources& sources,
                                         const settings& settings)
{
    const fs::path file = expand_home(options.netrc_file);
    const bool is_default = options.netrc_file == login_options().netrc_file;
    std::error_code ignored;
    if (is_default && !fs::exists(file, ignored)) {
        return std::nullopt;
    }
    std::string text;
    try {
        text = read_file(file);
    } catch (const LocalFileError& error) {
        if (!is_default) {
            throw;
        }
        note(settings, fmt::format("Warning: {}", error.what()));
    }
    std::optional<netrc_entry> found = find_in_netrc(text, sources.server.host, named_user(sources));
    if (found) {
        warn_if_readable(file, settings);
    }
    return found;
}

credentials find_credentials(const url& server, const login_options& options, const settings& settings)
{
    credential_sources sources{server, options.user, std::nullopt, secret(password_variable), std::nullopt};
    if (!options.password_file.empty()) {
        sources.password_file = first_line(expand_home(options.password_file));
        warn_if_readable(expand_home(options.password_file), settings);
    }
    if (needs_netrc(sources)) {
        sources.netrc = look_up_netrc(options, sources, settings);
    }
    credentials found = choose_credentials(sources);
    masked_secret(found.password);
    return found;
}

std::optional<std::string> find_pass_phrase(const login_options& options)
{
    return masked_secret(options.pass_phrase_file.empty() ? secret(pass_phrase_variable)
                                                          : first_line(expand_home(options.pass_phrase_file)));
}

void use_keys(session_options& session, const login_options& options)
{
    for (const std::string& key : options.keys) {
        session.private_keys.push_back(expand_home(key));
        (void)read_file(session.private_keys.back()); // A key that was named and is missing is an error.
    }
    session.pass_phrase = find_pass_phrase(options);
    session.use_agent = !options.no_agent;
    session.identities_only = options.identities_only;
    if (!options.ssh_config.empty()) {
        session.ssh_config.only = options.ssh_config == "none" ? fs::path() : expand_home(options.ssh_config);
    }
}

void use_certificates(session_options& session, const login_options& options)
{
    session.certificate_authorities = expand_home(options.certificate_authorities);
    session.pins = options.pins;
    session.trust = certificate_trusts.at(options.tls_trust);
    session.known_tls_file = expand_home(options.known_tls);
    session.client_certificate = expand_home(options.certificate);
    session.client_key = expand_home(options.certificate_key);
    if (!options.certificate.empty()) {
        session.pass_phrase = find_pass_phrase(options);
    }
}

session_options connection_options(const login_options& options)
{
    session_options session;
    session.tls = tls_modes.at(options.tls);
    use_certificates(session, options);
    session.active = options.active;
    session.use_proxy = !options.proxy.empty();
    session.proxy = options.proxy == environment_proxy ? "" : options.proxy;
    session.host_keys = host_key_checks.at(options.host_key);
    session.known_hosts_file = expand_home(options.known_hosts);
    session.connect_timeout = to_milliseconds(options.connect_timeout);
    session.stall_timeout = to_milliseconds(options.stall_timeout);
    session.total_timeout = to_milliseconds(options.timeout);
    return session;
}

void use_dialogue(session_options& session, const std::shared_ptr<login_dialogue>& dialogue,
                  const settings& settings)
{
    session.ask_password = [dialogue](unsigned attempt) { return dialogue->password(attempt); };
    // Each session has a copy of its own: what that asks for once more was wrong.
    session.ask_pass_phrase = [dialogue, asked = std::set<fs::path>()](const fs::path& key) mutable {
        return dialogue->pass_phrase(key, !asked.insert(key).second);
    };
    session.answer_prompts = [dialogue](const login_prompts& prompts) { return dialogue->answers(prompts); };
    session.confirm_host_key = [dialogue](const host_key& key) { return dialogue->accepts(key); };
    session.confirm_certificate = [dialogue](const server_certificate& shown) {
        return dialogue->accepts(shown);
    };
    session.on_warning = [settings](const std::string& sentence) {
        auto shown = settings;
        shown.quiet =
            settings.quiet && !sentence.starts_with("Warning: "); // A key that nobody remembers is no note.
        note(shown, escape(sentence));
    };
}

/// A number of seconds that fits into a duration.
std::string check_seconds(const std::string& text)
{
    double seconds = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool is_number = failure == std::errc() && end == text.data() + text.size();
    return is_number && seconds >= 0 && seconds <= 1e9 ? "" : '"' + text + "\" is not a number of seconds";
}

void add_seconds(CLI::App& command, const char* name, double& seconds, const char* help)
{
    command.add_option(name, seconds, help)
        ->check(CLI::Validator(check_seconds, ""))
        ->type_name("SECONDS")
        ->capture_default_str();
}

void add_file(CLI::App& command, const char* name, std::string& file, const char* help)
{
    command.add_option(name, file, help)->type_name("FILE");
}

void add_tls_options(CLI::App& command, login_options& options)
{
    command.add_option("--tls", options.tls, "FTP: encryption")
        ->check(CLI::IsMember({"none", "opportunistic", "strict"}).description(""))
        ->type_name("none|opportunistic|strict")
        ->capture_default_str();
    add_file(command, "--cacert", options.certificate_authorities,
             "FTP: certificate authorities to trust (PEM); else the system's");
    command.add_option("--pin", options.pins, "FTP: the certificate's key, as sha256//BASE64; may be repeated")
        ->type_name("PIN")
        ->allow_extra_args(false);
    command.add_option("--tls-trust", options.tls_trust, "FTP: which certificates are accepted")
        ->check(CLI::IsMember({"strict", "accept-new"}).description(""))
        ->type_name("strict|accept-new")
        ->capture_default_str();
    add_file(command, "--known-tls", options.known_tls,
             "FTP: file of known certificates; else ~/.config/qrftp/known_tls");
    add_file(command, "--cert", options.certificate, "FTP: client certificate (PEM) to log in with");
    add_file(command, "--cert-key", options.certificate_key,
             "FTP: its private key; else that in the same file");
}

void add_ssh_options(CLI::App& command, login_options& options)
{
    command.add_option("-i,--key", options.keys, "SFTP: private key to log in with; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command.add_flag("--no-agent", options.no_agent, "SFTP: do not use the keys of the SSH agent");
    command.add_flag("--identities-only", options.identities_only,
                     "SFTP: of the agent's keys, only those named by --key");
    command
        .add_option("--ssh-config", options.ssh_config,
                    "SFTP: OpenSSH configuration, or none; else ~/.ssh/config and the system's")
        ->type_name("FILE");
    command.add_option("--host-key", options.host_key, "SFTP: which host keys to accept")
        ->check(CLI::IsMember({"strict", "accept-new", "off"}).description(""))
        ->type_name("strict|accept-new|off")
        ->capture_default_str();
    add_file(command, "--known-hosts", options.known_hosts,
             "SFTP: file of known host keys; else ~/.ssh/known_hosts");
}

/// Overwrites the password of the URL that a word of the command line is.
void hide_password(std::span<char> argument)
{
    static constexpr std::string_view proxy = "--proxy=";
    const bool is_proxy = std::string_view(argument.data(), argument.size()).starts_with(proxy);
    argument = argument.subspan(is_proxy ? proxy.size() : 0);
    const std::string word(argument.begin(), argument.end());
    std::string password = is_proxy ? std::string(password_in(word)) : "";
    try {
        password = !is_proxy && is_url(word) ? url::parse(word).password : password;
    } catch (const InvalidUrl&) {
        password = password_in(word);
    }
    if (!password.empty()) {
        const std::string_view written = password_in(word);
        mask_secret(password);
        mask_secret(written);
        std::fill_n(argument.begin() + (written.data() - word.data()), written.size(), '*');
    }
}

/// The same in a whole line, as the completion of a shell gives it.
void hide_passwords_of_line(std::span<char> line)
{
    const auto is_end = [](char byte) {
        return std::string_view(" \t\n'\"").find(byte) != std::string_view::npos;
    };
    for (auto begin = line.begin(); begin != line.end();) {
        const auto end = std::find_if(begin, line.end(), is_end);
        hide_password({begin, end});
        begin = end == line.end() ? end : end + 1;
    }
}

} // namespace

void add_login_options(CLI::App& command, login_options& options)
{
    command.option_defaults()->group("Connection");
    command
        .add_option("-u,--user", options.user, "User name; else the URL's, ~/.netrc's, ssh_config's, your own")
        ->type_name("NAME");
    command.add_option("--password-file", options.password_file, "File whose first line is the password")
        ->type_name("FILE");
    command
        .add_option("--password-command", options.password_command,
                    "Program whose first line is the password, run by /bin/sh when the server asks for one")
        ->type_name("COMMAND")
        ->excludes("--password-file");
    command.add_option("--netrc-file", options.netrc_file, "File with logins of hosts")
        ->type_name("FILE")
        ->capture_default_str();
    add_file(command, "--pass-phrase-file", options.pass_phrase_file,
             "File whose first line is the pass phrase of --key or --cert");
    add_tls_options(command, options);
    command.add_flag("--active", options.active, "FTP: active mode; the server opens the data connections");
    command
        .add_flag(
            fmt::format("--proxy{{{}}}", environment_proxy), options.proxy,
            "Proxy (http, https, socks5, socks5h); without URL, the one that http_proxy or all_proxy names")
        ->type_name("[URL]");
    add_ssh_options(command, options);
    add_seconds(command, "--connect-timeout", options.connect_timeout, "Time to connect");
    add_seconds(command, "--stall-timeout", options.stall_timeout, "Time without data; 0: no limit");
    add_seconds(command, "--timeout", options.timeout, "Time for each request as a whole; 0: no limit");
    command.option_defaults()->group("Options");
}

void join_proxy_url(std::vector<std::string>& arguments)
{
    const auto is_proxy = [](const std::string& word) {
        return word.starts_with("http://") || word.starts_with("https://") || word.starts_with("socks");
    };
    for (std::size_t i = 0; i + 1 < arguments.size() && arguments[i] != "--"; ++i) {
        if (arguments[i] == "--proxy" && is_url(arguments[i + 1]) && is_proxy(arguments[i + 1])) {
            arguments[i] += '=' + arguments[i + 1];
            arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1);
        }
    }
}

void hide_passwords(std::span<char*> arguments)
{
    bool is_line = false;
    for (char* const argument : arguments) {
        const std::span<char> text(argument, std::strlen(argument));
        is_line ? hide_passwords_of_line(text) : hide_password(text);
        is_line = std::string_view(argument) == "--complete-line";
    }
}

std::vector<url> parse_urls(const std::vector<std::string>& words)
{
    std::vector<url> urls;
    for (const std::string& word : words) {
        urls.push_back(url::parse(word));
        if (urls.back().server() != urls.front().server() || urls.back().user != urls.front().user) {
            throw usage_error("All URLs must be of the same server and user.");
        }
    }
    return urls;
}

login::login(const url& server, const login_options& options, const settings& settings)
    : server_(server), options_(connection_options(options))
{
    const bool has_command = !options.password_command.empty() && server.password.empty();
    credentials found = find_credentials(server, options, settings);
    if (has_command) {
        found.password.reset(); // What the environment and ~/.netrc have comes after it.
    }
    options_.user = found.user;
    options_.password = found.password;
    subject_ = (found.user.empty() ? "" : found.user + "@") + server.host;
    dialogue_ = std::make_shared<login_dialogue>(subject_, found.password);
    if (has_command) {
        dialogue_->use_command(options.password_command);
    }
    use_dialogue(options_, dialogue_, settings);
    if (server.scheme == url_scheme::sftp) {
        use_keys(options_, options);
    }
}

session login::open() const
try {
    session_options options = options_;
    options.stop = interrupt_token();
    return session(server_, std::move(options));
} catch (const LoginRefused& refused) {
    if (!dialogue_->lacks_terminal()) {
        throw;
    }
    throw no_secret(
        fmt::format("{} There is no terminal to ask for a password or pass phrase for {}; give it by "
                    "--password-file, --pass-phrase-file, {}, {} or ~/.netrc.",
                    refused.what(), subject_, password_variable, pass_phrase_variable));
}

} // namespace qrftp::cli

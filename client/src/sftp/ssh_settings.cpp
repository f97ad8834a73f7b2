#include "ssh_settings.hpp"

#include "proxy_command.hpp"
#include "ssh_config_line.hpp"
#include "ssh_config_loader.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <cstdlib>
#include <pwd.h>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace qrftp::sftp {

namespace fs = std::filesystem;

namespace {

constexpr std::uint16_t ssh_port = 22;
constexpr const char* none = "none";

struct account {
    std::string name{};
    fs::path home{};
};

account this_account()
{
    account result;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
        result = {found->pw_name, found->pw_dir};
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read only
    if (const char* const home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        result.home = home;
    }
    return result;
}

std::string first_of(const std::string& one, const std::string& other)
{
    return one.empty() ? other : one;
}

void check_text(const std::string& text)
{
    if (text.find('\0') != std::string::npos) {
        throw InvalidName(text, "a NUL character");
    }
}

/// What goes to a shell, or to ssh(1) as an argument, must not mean anything to it.
void check_for_command(const std::string& text)
{
    if (text.starts_with('-') || text.find_first_of("'\"`$\\;&<>|(){}!*? \t\r\n") != std::string::npos) {
        throw InvalidName(text, "a character that ProxyCommand and ProxyJump cannot be given");
    }
}

std::vector<fs::path> usual_keys(const fs::path& home)
{
    std::vector<fs::path> keys;
    for (const char* const name : {"id_rsa", "id_ecdsa", "id_ed25519"}) {
        keys.push_back(home / ".ssh" / name);
    }
    return keys;
}

/// Through ssh(1): the last jump host makes the connection, and is reached through those before it.
std::vector<std::string> jump_arguments(const std::string& jumps, const ssh_settings& settings,
                                        const ssh_config_files& files)
{
    std::vector<std::string> arguments = {"ssh"};
    if (files.only) {
        arguments.insert(arguments.end(), {"-F", files.only->empty() ? none : files.only->string()});
    }
    const auto comma = jumps.rfind(',');
    std::string last = comma == std::string::npos ? jumps : jumps.substr(comma + 1);
    if (comma != std::string::npos) {
        arguments.insert(arguments.end(), {"-J", jumps.substr(0, comma)});
    }
    if (!last.starts_with("ssh://")) {
        last = "ssh://" + last; // The form that has a place for user and port.
    }
    check_for_command(last);
    arguments.insert(arguments.end(), {"-W", fmt::format("[{}]:{}", settings.host, settings.port), "--", last});
    return arguments;
}

std::vector<std::string> proxy_arguments(const ssh_config& config, const ssh_settings& settings,
                                         const ssh_config_files& files, const std::string& host)
{
    const std::string jump = config.proxy_jump.value_or(none);
    const std::string command = config.proxy_command.value_or(none);
    if (jump == none && command == none) {
        return {};
    }
    check_for_command(settings.host);
    if (jump != none) {
        return jump_arguments(jump, settings, files);
    }
    check_for_command(settings.user);
    return shell_arguments(replace_tokens(command, {{'%', "%"},
                                                    {'h', settings.host},
                                                    {'n', host},
                                                    {'p', std::to_string(settings.port)},
                                                    {'r', settings.user}}));
}

void resolve_keys(ssh_settings& settings, const session_options& options, const ssh_config& config,
                  const fs::path& home)
{
    settings.explicit_keys = !options.private_keys.empty();
    settings.private_keys = settings.explicit_keys           ? options.private_keys
                            : !config.identity_files.empty() ? config.identity_files
                            : config.no_identity_files       ? std::vector<fs::path>()
                                                             : usual_keys(home);
    settings.explicit_certificates = !options.certificates.empty();
    settings.certificates = settings.explicit_certificates ? options.certificates : config.certificate_files;
    settings.identities_only = options.identities_only || config.identities_only.value_or(false);
}

void resolve_host_keys(ssh_settings& settings, const session_options& options, const ssh_config& config,
                       const fs::path& home)
{
    settings.known_hosts_name = config.host_key_alias.empty()
                                    ? known_hosts_name(settings.host, settings.port)
                                    : known_hosts_name(config.host_key_alias, ssh_port);
    if (!options.known_hosts_file.empty()) {
        settings.user_known_hosts = {options.known_hosts_file};
    } else if (config.user_known_hosts_files) {
        settings.user_known_hosts = *config.user_known_hosts_files;
    } else if (!home.empty()) {
        settings.user_known_hosts = {home / ".ssh" / "known_hosts", home / ".ssh" / "known_hosts2"};
    }
    const fs::path usual = session_options{}.global_known_hosts_file;
    settings.global_known_hosts = {options.global_known_hosts_file};
    if (options.global_known_hosts_file == usual && config.global_known_hosts_files) {
        settings.global_known_hosts = *config.global_known_hosts_files;
    } else if (options.global_known_hosts_file.empty()) {
        settings.global_known_hosts.clear();
    }
    // A configuration file can be stricter than the program, not less strict.
    const bool strict = config.strict_host_key_checking.value_or("") == "yes";
    settings.host_keys =
        strict && options.host_keys == host_key_check::accept_new ? host_key_check::strict : options.host_keys;
}

} // namespace

ssh_settings resolve_settings(const url& server, const session_options& options)
{
    const account me = this_account();
    const std::string asked_user = first_of(options.user, server.user);
    const ssh_config config = load_ssh_config(options.ssh_config, {server.host, asked_user, me.name, me.home});
    ssh_settings settings;
    settings.server = server.server();
    settings.host = config.host_name;
    settings.port = server.port != 0 ? server.port : config.port.value_or(ssh_port);
    settings.user = first_of(first_of(asked_user, config.user), me.name);
    check_text(settings.host);
    check_text(settings.user);
    if (options.password || !server.password.empty()) {
        settings.password = options.password ? *options.password : server.password;
        check_text(*settings.password);
    }
    resolve_keys(settings, options, config, me.home);
    resolve_host_keys(settings, options, config, me.home);
    settings.proxy_command = proxy_arguments(config, settings, options.ssh_config, server.host);
    const bool usual_timeout = options.connect_timeout == session_options{}.connect_timeout;
    settings.connect_timeout = options.connect_timeout;
    if (usual_timeout && config.connect_timeout) {
        settings.connect_timeout = *config.connect_timeout;
    }
    settings.connect_timeout = shorter_limit(settings.connect_timeout, options.total_timeout);
    settings.alive_interval = config.server_alive_interval.value_or(settings.alive_interval);
    settings.alive_count_max = config.server_alive_count_max.value_or(settings.alive_count_max);
    return settings;
}

} // namespace qrftp::sftp

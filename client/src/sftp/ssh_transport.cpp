#include "ssh_transport.hpp"

#include "../host_key_policy.hpp"
#include "authentication.hpp"
#include "proxy_connection.hpp"
#include "ssh_channel.hpp"
#include "tcp_connection.hpp"

#include <qrftp/error.hpp>

#include <system_error>
#include <utility>

namespace qrftp::sftp {

namespace {

constexpr unsigned most_connections = 8; ///< of one login: each takes the next of many keys

byte_connection open_connection(const ssh_settings& settings, const session_options& options,
                                interruptible_wait& wait)
{
    if (!settings.proxy_command.empty() && options.proxy.empty()) {
        try {
            auto [process, socket] = proxy_process::start(settings.proxy_command);
            return {std::move(socket), std::move(process)};
        } catch (const std::system_error& e) {
            throw NoConnection(settings.server, {0, e.what()});
        }
    }
    if (const auto proxy = select_proxy(options)) {
        return {connect_through(*proxy, settings.host, settings.port, wait), {}};
    }
    return {connect_tcp(settings.host, settings.port, wait), {}};
}

host_key_policy make_policy(const ssh_settings& settings, const session_options& options)
{
    return {settings.known_hosts_name,
            {settings.host_keys, settings.user_known_hosts, settings.global_known_hosts,
             options.confirm_host_key, options.on_warning}};
}

} // namespace

std::unique_ptr<transport> connect_ssh(const url& server, const session_options& options, server_info& info)
{
    const ssh_settings settings = resolve_settings(server, options);
    const auto wait =
        std::make_shared<interruptible_wait>(settings.server, options.stop, settings.connect_timeout);
    wait->throw_if_stopped();
    const host_key_policy policy = make_policy(settings, options);
    authentication login(settings, options);
    for (unsigned count = 0; count < most_connections; ++count) {
        wait->restart();
        auto connection = std::make_shared<ssh_connection>(open_connection(settings, options, *wait), wait);
        connection->exchange_keys(settings, policy.known_types());
        const host_key key = connection->server_key(settings.known_hosts_name);
        policy.check(key);
        info.greeting = connection->identification();
        info.encryption = connection->ciphers();
        info.key = key;
        if (login.log_in(*connection)) {
            return std::make_unique<channel_transport>(wait, std::move(connection));
        }
    }
    throw LoginRefused(settings.server, {0, "too many keys: name the one to use, or use fewer in the agent"});
}

} // namespace qrftp::sftp

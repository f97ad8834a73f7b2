#pragma once

#include "../unique_fd.hpp"

#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qrftp::sftp {

/// A connection to the user's SSH agent (draft-ietf-sshm-ssh-agent). One thread at a time.
class agent {
public:
    /// Connects to the agent that SSH_AUTH_SOCK names; none where there is none.
    static std::optional<agent> open();

    /// The public keys that the agent has, in its order; none where it fails.
    [[nodiscard]] std::vector<std::string> keys();

    /// Sends a request and returns the answer, both without their length; none where the agent fails.
    std::optional<std::string> ask(std::string_view request);

    [[nodiscard]] int socket() const { return socket_.get(); }

private:
    explicit agent(unique_fd socket) : socket_(std::move(socket)) {}

    unique_fd socket_;
};

/// Stands between libssh and the agent, so that libssh sees one key at a time: the one that is offered. A stop
/// request ends what the agent is asked, such as to wait for a touch.
class agent_bridge {
public:
    agent_bridge(agent real, std::stop_token stop);
    agent_bridge(const agent_bridge&) = delete;
    agent_bridge& operator=(const agent_bridge&) = delete;
    ~agent_bridge();

    /// The end of a socket to hand to libssh, once for each session, which closes it. Ends the one before.
    int connect();

    /// From now on the only key of the agent is `shown`, a public key or a certificate, for which `key` signs.
    void offer(std::string shown, std::string key);

private:
    void serve(int socket);
    std::string answer(std::string_view request);
    void end_thread();

    agent real_;
    std::stop_token stop_;
    std::mutex mutex_;
    std::string shown_;
    std::string key_;
    unique_fd ours_;
    std::thread thread_;
};

} // namespace qrftp::sftp

#pragma once

#include "../unique_fd.hpp"
#include "interruptible_wait.hpp"
#include "proxy_command.hpp"
#include "ssh_settings.hpp"

#include <qrftp/known_hosts.hpp>

#include <libssh/libssh.h>

#include <memory>
#include <string>
#include <vector>

namespace qrftp::sftp {

/// What libssh says, which may be nothing.
inline std::string text_of(const char* text)
{
    return text == nullptr ? std::string() : std::string(text);
}

/// A way to a server: a socket, and the program behind it where there is one.
struct byte_connection {
    unique_fd socket{};
    proxy_process process{};
};

/// One SSH connection on libssh, whose calls never block here. Ends with the object.
class ssh_connection {
public:
    ssh_connection(byte_connection connection, interruptible_wait& wait);
    ssh_connection(const ssh_connection&) = delete;
    ssh_connection& operator=(const ssh_connection&) = delete;
    ~ssh_connection();

    /// Exchanges identifications and keys; `known_types` are the types of host key to ask for first. Nothing
    /// secret is sent. Throws `NoConnection`, `Timeout`, `Cancelled`.
    void exchange_keys(const ssh_settings& settings, const std::vector<std::string>& known_types);

    /// The key that the server showed; `host` is how known-hosts files write the server.
    [[nodiscard]] host_key server_key(const std::string& host) const;

    /// Calls `call` until it returns something else than `again`, and waits for the server in between. The time
    /// of one step is limited. Throws `Timeout`, `Cancelled`.
    template <class Call>
    int finish(Call call, int again)
    {
        wait_.restart();
        int result = call();
        while (result == again && is_connected()) {
            wait_for_server();
            result = call();
        }
        return result;
    }

    [[nodiscard]] ssh_session get() const { return session_.get(); }
    [[nodiscard]] interruptible_wait& wait() const { return wait_; }
    [[nodiscard]] bool is_connected() const { return ssh_is_connected(get()) != 0; }
    /// libssh's own words about the last failure, for messages.
    [[nodiscard]] std::string last_words() const;
    /// The server's identification: "SSH-2.0-OpenSSH_9.2p1".
    [[nodiscard]] std::string identification() const;
    /// The ciphers that were agreed on; one name where both directions have the same.
    [[nodiscard]] std::string ciphers() const;

private:
    struct deleter {
        void operator()(ssh_session session) const noexcept;
    };
    void set(ssh_options_e option, const void* value);
    void wait_for_server();
    void refuse_ftp(int fd, const ssh_settings& settings);
    [[nodiscard]] std::string not_ssh() const;

    proxy_process process_; ///< ends after the session
    interruptible_wait& wait_;
    std::unique_ptr<ssh_session_struct, deleter> session_;
    unique_fd socket_; ///< until libssh has it
    std::string first_line_;
};

} // namespace qrftp::sftp

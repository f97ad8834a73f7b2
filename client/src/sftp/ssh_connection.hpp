#pragma once

#include "../unique_fd.hpp"
#include "interruptible_wait.hpp"
#include "proxy_command.hpp"
#include "ssh_settings.hpp"

#include <qrftp/known_hosts.hpp>

#include <libssh/libssh.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
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
///
/// Its channels may belong to several threads, each with an `interruptible_wait` of its own, which has joined.
/// They call libssh by `locked` and `finish` alone.
class ssh_connection {
public:
    /// `wait` is that of the thread that logs in.
    ssh_connection(byte_connection connection, std::shared_ptr<interruptible_wait> wait);
    ssh_connection(const ssh_connection&) = delete;
    ssh_connection& operator=(const ssh_connection&) = delete;
    ~ssh_connection();

    /// Exchanges identifications and keys; `known_types` are the types of host key to ask for first. Nothing
    /// secret is sent. Throws `NoConnection`, `Timeout`, `Cancelled`.
    void exchange_keys(const ssh_settings& settings, const std::vector<std::string>& known_types);

    /// The key that the server showed; `host` is how known-hosts files write the server.
    [[nodiscard]] host_key server_key(const std::string& host) const;

    /// Makes a call of libssh while no other thread is in one. It may read from the socket what another thread
    /// waits for, which is then woken.
    template <class Call>
    auto locked(const interruptible_wait& wait, Call call)
    {
        const std::lock_guard lock(mutex_);
        const std::uint64_t arrived = counted_.in_bytes;
        auto result = call();
        if (arrived != counted_.in_bytes || !is_connected()) {
            wake_others(wait);
        }
        return result;
    }

    /// Calls `call` until it returns something else than `again`, and waits for the server in between. The time
    /// of one step is limited. Throws `Timeout`, `Cancelled`.
    template <class Call>
    int finish(interruptible_wait& wait, Call call, int again)
    {
        wait.restart();
        for (;;) {
            bool waits = false;
            const int result = locked(wait, [&] {
                const int returned = call();
                waits = returned == again && is_connected();
                return returned;
            });
            if (!waits) {
                return result;
            }
            wait_for_server(wait);
        }
    }
    /// The same, while there is one thread.
    template <class Call>
    int finish(Call call, int again)
    {
        return finish(*wait_, call, again);
    }

    void join(interruptible_wait& wait);
    /// Returns whether others remain.
    bool leave(const interruptible_wait& wait) noexcept;

    /// Asks the server whether it is there when nothing has arrived for an interval (ssh_config(5),
    /// ServerAliveInterval). Throws `ConnectionLost` after too many questions.
    void keep_alive(const interruptible_wait& wait);
    /// How long to wait at most for what keeps it alive.
    [[nodiscard]] std::chrono::milliseconds until_alive(std::chrono::milliseconds longest) const;

    [[nodiscard]] ssh_session get() const { return session_.get(); }
    [[nodiscard]] const std::shared_ptr<interruptible_wait>& wait() const { return wait_; }
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
    using clock = std::chrono::steady_clock;

    void set(ssh_options_e option, const void* value);
    void wait_for_server(interruptible_wait& wait);
    void wake_others(const interruptible_wait& wait) const;
    void refuse_ftp(int fd, const ssh_settings& settings);
    [[nodiscard]] std::string not_ssh() const;

    proxy_process process_; ///< ends after the session
    std::shared_ptr<interruptible_wait> wait_;
    ssh_counter_struct counted_{}; ///< what libssh has read from the socket, whoever asked for it
    std::unique_ptr<ssh_session_struct, deleter> session_;
    unique_fd socket_; ///< until libssh has it
    std::string first_line_;

    std::mutex mutex_{}; ///< of libssh's calls and of what follows
    std::vector<interruptible_wait*> joined_{};
    std::chrono::seconds alive_interval_{0};
    unsigned alive_count_max_ = 0;
    unsigned unanswered_ = 0;
    std::uint64_t seen_bytes_ = 0;
    clock::time_point last_arrival_ = clock::now();
};

} // namespace qrftp::sftp

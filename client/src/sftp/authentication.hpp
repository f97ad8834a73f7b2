#pragma once

#include "agent.hpp"
#include "identities.hpp"
#include "private_key.hpp"
#include "ssh_connection.hpp"
#include "ssh_settings.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qrftp::sftp {

/// Logs in, in the order of ssh(1): the keys of the agent and of files, keyboard-interactive, the password.
/// What was tried once is not tried again over another connection.
class authentication {
public:
    /// Asks the agent for its keys and reads the key files. Throws what `list_identities` throws.
    authentication(const ssh_settings& settings, const session_options& options);

    /// False when the server closed the connection since it had refused enough keys: call it again with a new
    /// connection, with which it goes on. Throws `LoginRefused`, `ConnectionLost`, `InvalidOption`, `Timeout`,
    /// `Cancelled`.
    [[nodiscard]] bool log_in(ssh_connection& connection);

private:
    enum class result { accepted, partly, refused, closed };

    std::vector<std::string> open_agent();
    void warn_of_silent_agent() const;
    result try_keys();
    result try_agent_key(const identity& one);
    result try_file_key(const identity& one);
    result try_interactive();
    result try_passwords();
    result try_none();
    result try_next_method();

    /// Sends what `call` sends and waits for the server's answer.
    template <class Call>
    int request(Call call);
    result judge(int libssh_result);
    /// Traces what was tried, and remembers a refusal.
    result note(const std::string& tried, result outcome, const std::string& which = {});
    bool can_go_on_with_another_connection() const;

    /// The private key; null where the user does not unlock it.
    key_ptr unlock(const identity& one);
    /// What the server asks for now.
    [[nodiscard]] login_prompts prompts() const;
    /// None where nobody knows the answers.
    std::optional<std::vector<std::string>> answers(const login_prompts& asked);
    std::string ask_password();
    [[nodiscard]] bool can_ask_password() const;
    [[noreturn]] void refuse(const std::string& why) const;

    const ssh_settings& settings_;
    const session_options& options_;
    std::unique_ptr<agent_bridge> agent_;
    std::vector<identity> identities_;
    std::size_t next_ = 0;  ///< of `identities_`
    std::size_t first_ = 0; ///< of this connection
    unsigned asked_ = 0;    ///< how often the user was asked for a password
    bool is_password_unjudged_ = false;
    bool password_answered_ = false;

    ssh_connection* connection_ = nullptr;
    unsigned used_methods_ = 0;
    bool refused_ = false; ///< the server refused something over this connection
    std::string closing_words_;
    std::string reason_; ///< why a key was not shown to the server
    std::string refusals_;
};

} // namespace qrftp::sftp

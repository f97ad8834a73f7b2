#pragma once

#include "command_line.hpp"
#include "complete.hpp"
#include "login.hpp"

#include <qrftp/session.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace qrftp::cli {

/// What one shell knows from one line to the next.
struct shell_state {
    /// A shell without a session. Its commands begin with the settings of `given`, and its logins with the
    /// login options.
    explicit shell_state(const command_line& given);
    ~shell_state();
    shell_state(const shell_state&) = delete;
    shell_state& operator=(const shell_state&) = delete;

    /// Logs in where the URL points to and goes to its folder. The session that was open ends when that has
    /// succeeded. Throws what logging in throws.
    void open(const std::string& place, const login_options& options);
    void close();

    /// The session that is open. One that an interrupt has ended is replaced by another one in the same folder.
    /// Throws `usage_error` where none is open, and what logging in throws.
    session& remote();

    /// Before each command: forgets what the one before was told. Subcommands may keep it anywhere.
    void reset_line();

    /// Lets the shell continue after an interrupt.
    void forget_interrupt();

    /// Where the shell is: host and folder; empty where no session is open.
    [[nodiscard]] std::string place() const;

    command_line defaults;                   ///< what each command begins with
    command_line line;                       ///< what the command that runs was told
    std::unique_ptr<CLI::App> commands;      ///< all of them; parsing fills `line`
    remote_names names;                      ///< for completion
    std::string last_folder;                 ///< where "cd -" goes; empty at first
    std::filesystem::path last_local_folder; ///< where "lcd -" goes; empty at first
    bool has_ended = false;

private:
    std::optional<login> way_;
    std::optional<session> session_;
    bool is_cancelled_ = false; ///< an interrupt has ended the session for good
};

} // namespace qrftp::cli

#pragma once

#include "complete.hpp"
#include "settings.hpp"
#include "tokenize.hpp"

#include <qrftp/session.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// What one shell knows from one line to the next.
struct shell_state {
    session& remote;
    const settings& options;
    std::function<session()> connect;          ///< logs in once more
    remote_names names{};                      ///< for completion
    std::string last_folder{};                 ///< where "cd -" goes; empty at first
    std::filesystem::path last_local_folder{}; ///< where "lcd -" goes; empty at first
    bool has_ended = false;
    bool is_cancelled = false; ///< an interrupt has ended `remote` for good

    /// Lets the shell continue after an interrupt.
    void forget_interrupt();
    /// Replaces a session that an interrupt has ended by one in the same folder. Throws what logging in throws.
    void renew_session();
};

/// The words of a line after the name of the command.
struct shell_arguments {
    std::string options; ///< their letters
    std::vector<token> operands;

    [[nodiscard]] bool has(char option) const { return options.find(option) != std::string::npos; }
    /// The operand at `place`; empty where there are fewer.
    [[nodiscard]] std::string text(std::size_t place) const
    {
        return place < operands.size() ? operands[place].text : std::string();
    }
    [[nodiscard]] std::vector<std::string> texts() const;
    [[nodiscard]] std::vector<std::string> patterns() const;
};

/// What a command does to the server.
enum class shell_effect {
    none, ///< nothing is sent
    reads,
    changes,
};

struct shell_command {
    static constexpr std::size_t any = static_cast<std::size_t>(-1);

    std::string_view name;
    std::string_view usage; ///< what may follow the name
    std::string_view help;
    std::string_view options; ///< their letters
    /// What each operand is, for completion; the last letter is for all further ones: "r" something remote, "R"
    /// a remote folder, "l" and "L" the same for local ones, "c" a command.
    std::string_view operands;
    std::size_t least; ///< operands
    std::size_t most;
    shell_effect effect;
    void (*run)(shell_state& state, const shell_arguments& arguments);
};

/// All commands of the shell, in the order of their names.
std::span<const shell_command> shell_commands();

/// The command of that name; null where there is none.
const shell_command* find_command(std::string_view name);

/// Runs a line of the shell; an empty one does nothing, "!" hands the rest of it to the user's own shell.
/// Throws `usage_error` and what the command throws.
void run_line(shell_state& state, const std::string& line);

} // namespace qrftp::cli

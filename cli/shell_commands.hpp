#pragma once

#include "complete.hpp"
#include "settings.hpp"

#include <qrftp/client.hpp>

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// What one shell knows from one line to the next.
struct shell_state {
    session& remote;
    const settings& how;
    remote_names names;                      ///< for completion
    std::string last_folder;                 ///< where "cd -" goes; empty at first
    std::filesystem::path last_local_folder; ///< where "lcd -" goes; empty at first
    bool ended = false;
};

/// The words of a line behind the name of the command.
struct shell_arguments {
    std::string options; ///< their letters
    std::vector<std::string> operands;

    bool has(char option) const { return options.find(option) != std::string::npos; }
    /// The operand at `place`; empty where there are fewer.
    std::string at(std::size_t place) const
    {
        return place < operands.size() ? operands[place] : std::string();
    }
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
    bool changes; ///< what is on the server may be different afterwards
    void (*run)(shell_state& state, const shell_arguments& given);
};

/// All commands of the shell, in the order of their names.
std::span<const shell_command> shell_commands();

/// The command of that name; null where there is none.
const shell_command* find_command(std::string_view name);

/// Runs a line of the shell; an empty one does nothing, "!" hands the rest of it to the user's own shell.
/// Throws `usage_error` and what the command throws.
void run_line(shell_state& state, const std::string& line);

} // namespace qrftp::cli

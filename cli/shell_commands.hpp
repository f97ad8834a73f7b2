#pragma once

namespace CLI {
class App;
}

namespace qrftp::cli {

struct shell_state;

/// Adds the commands that only the shell has.
void add_shell_commands(CLI::App& app, shell_state& state);

} // namespace qrftp::cli

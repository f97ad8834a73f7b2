#pragma once

#include <exception>
#include <functional>
#include <string>

namespace qrftp::cli {

struct shell_state;

/// Runs the commands of a line, which ";" separates, up to the first that fails. "!" hands the rest of the line
/// to the user's own shell. The failure of a command with "-" before it goes to `on_ignored`, any other one is
/// thrown: `usage_error`, and what the command throws.
void run_line(shell_state& state, const std::string& line,
              const std::function<void(const std::exception&)>& on_ignored);

} // namespace qrftp::cli

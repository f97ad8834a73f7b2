#pragma once

namespace qrftp::cli {

struct shell_state;

/// Reads commands from a terminal, with line editing, history and completion, until "exit" or the end of input.
/// Returns the exit status.
int converse(shell_state& state);

/// Runs the lines that `descriptor` gives, up to the first one that fails, which is reported with its number.
/// Returns the exit status.
int run_batch(shell_state& state, int descriptor);

/// `converse` where standard input and output are terminals, else `run_batch` of standard input.
int shell(shell_state& state);

} // namespace qrftp::cli

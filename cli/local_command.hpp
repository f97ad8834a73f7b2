#pragma once

#include <string>

namespace qrftp::cli {

/// Runs `line` by the user's shell, an empty one as an interactive shell, and waits for its end. Interrupts are
/// its own meanwhile. Throws `std::runtime_error` when it cannot be run, and when `line` fails.
void run_local(const std::string& line);

} // namespace qrftp::cli

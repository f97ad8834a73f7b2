#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qrftp::cli {

/// Runs a program, which is looked for as a shell does, with the arguments behind its name, and waits for its
/// end. Interrupts are its own meanwhile, and the secrets of the environment are not. Throws
/// `std::runtime_error` when it cannot be run, and when it fails.
void run_program(const std::vector<std::string>& words);

/// Runs `line` by /bin/sh; what it prints and the status that `waitpid` tells. An interrupt ends it: throws
/// `Cancelled`.
std::pair<std::string, int> read_output(const std::string& line);

/// Runs `line` by the user's shell, an empty one as an interactive shell, whose end is never a failure.
void run_local(const std::string& line);

} // namespace qrftp::cli

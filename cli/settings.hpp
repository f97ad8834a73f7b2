#pragma once

#include <stdexcept>

namespace qrftp::cli {

enum class progress_style {
    none,
    lines, ///< drawn on a terminal
    json,  ///< an object a line
};

/// How the command talks to its user; the same for every subcommand.
struct settings {
    bool json = false;   ///< one JSON object a line on standard output
    bool quiet = false;  ///< no progress, no notes; errors only
    bool human = false;  ///< sizes with units
    bool colour = false; ///< standard output is a terminal that shows colours
    progress_style progress = progress_style::none;
    bool dry_run = false; ///< says what would be done, does nothing
    int verbose = 0; ///< 1: the dialogue with the server and every file that is moved; 2: also the libraries
};

/// The command line, or a line of a batch or of the shell, cannot be understood; the text says why.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A folder was named for what takes files alone; the text says which option takes folders.
struct needs_recursion : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Some of several things failed; each has been reported already.
struct some_failed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A secret is needed, no source has it, and there is no terminal to ask at.
struct no_secret : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace qrftp::cli

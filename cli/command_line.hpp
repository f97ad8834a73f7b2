#pragma once

#include "commands.hpp"
#include "login.hpp"
#include "settings.hpp"

#include <qrftp/tree.hpp>

#include <functional>
#include <string>
#include <vector>

namespace qrftp::cli {

/// What the command line says, or a line of the shell. No subcommand uses all of it.
struct command_line {
    /// In the shell: the session that is open, which commands use in place of a login of their own.
    std::function<session&()> open_session;

    login_options login;
    settings options;
    std::string colour = "auto";
    std::vector<std::string> words; ///< URLs and paths, in their order
    /// In the shell: each of the words as a pattern, in which a backslash stands before what was quoted.
    std::vector<std::string> patterns;

    list_options list;
    bool recursive = false;
    bool parents = false;
    bool replace = false;
    bool summarize = false;
    unsigned depth = 0;
    unsigned count = 1;
    std::string batch;
    bool no_replace = false;
    bool no_keep_time = false;
    bool preserve = false;
    bool clean_up = false;
    sync_options transfer;

    std::function<int()> run; ///< of the subcommand that was named
};

} // namespace qrftp::cli

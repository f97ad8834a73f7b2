#pragma once

#include "login.hpp"
#include "settings.hpp"

#include <qrftp/tree.hpp>

#include <functional>
#include <string>
#include <vector>

namespace qrftp::cli {

/// What the command line says. No subcommand uses all of it.
struct command_line {
    login_options login;
    settings options;
    std::string colour = "auto";
    std::vector<std::string> words; ///< URLs and paths, in their order

    bool long_form = false;
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
    bool watch = false;
    sync_options transfer;

    std::function<int()> run; ///< of the subcommand that was named
};

} // namespace qrftp::cli

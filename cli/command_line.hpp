#pragma once

#include "commands.hpp"
#include "login.hpp"
#include "settings.hpp"

#include <qrftp/tree.hpp>

#include <functional>
#include <map>
#include <set>
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
    std::string progress = "auto";
    std::vector<std::string> words; ///< URLs and paths, in their order
    /// In the shell: each of the words as a pattern, in which a backslash stands before what was quoted.
    std::vector<std::string> patterns;
    /// The profile whose options hold: the first that a word names, or in the shell the one that is open.
    std::string profile;
    /// In the shell: the options that "jobs" and "limit-rate" have set, which no profile changes.
    std::set<std::string> set_in_shell;
    /// Of URLs that another profile than the first gave: what is said about reaching their server.
    std::map<std::string, login_options> other_logins;

    /// What is said about reaching the server of that word.
    [[nodiscard]] const login_options& login_of(const std::string& word) const
    {
        const auto other = other_logins.find(word);
        return other == other_logins.end() ? login : other->second;
    }

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
    bool watch = false;
    double retry_delay = 1;
    bool checksum = false;
    bool size_only = false;
    bool update = false;
    bool keep_newer = false;
    sync_options transfer;

    std::function<int()> run; ///< of the subcommand that was named
};

} // namespace qrftp::cli

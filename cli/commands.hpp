#pragma once

#include "settings.hpp"

#include <qrftp/client.hpp>

#include <string>
#include <vector>

/// What the subcommands do on a session that is open. The shell does the same with them. Paths are remote
/// names as `qrftp::session` takes them unless they are called local. Each throws the client's errors; where
/// several things are named, each that fails is reported on standard error, and `some_failed` thrown at the
/// end.
namespace qrftp::cli {

struct ls_arguments {
    std::vector<std::string> paths; ///< files, folders, globs; none means the working folder
    bool long_form = false;
    bool recursive = false;
};
void ls(session& remote, const ls_arguments& given, const settings& how);

struct tree_arguments {
    std::string path;
    unsigned depth = 0; ///< 0 means all
};
void tree(session& remote, const tree_arguments& given, const settings& how);

void stat(session& remote, const std::vector<std::string>& paths, const settings& how);
void cat(session& remote, const std::vector<std::string>& paths, const settings& how);
void du(session& remote, const std::vector<std::string>& paths, bool summarize, const settings& how);

struct transfer_arguments {
    std::vector<std::string> sources; ///< get: remote, with globs; put: local
    std::string target;               ///< a folder, or the name of the copy of a single source; empty: here
    bool recursive = false;
    tree_options tree; ///< its `transfer` holds for single files too
};
void get(session& remote, const transfer_arguments& given, const settings& how);
void put(session& remote, const transfer_arguments& given, const settings& how);

struct sync_arguments {
    std::string local;
    std::string remote;
    direction way = direction::fetch;
    sync_options options;
};
void sync(session& remote, const sync_arguments& given, const settings& how);

void rm(session& remote, const std::vector<std::string>& paths, bool recursive, const settings& how);
void mv(session& remote, const std::string& from, const std::string& to, bool replace, const settings& how);
void mkdir(session& remote, const std::vector<std::string>& paths, bool parents, const settings& how);
void rmdir(session& remote, const std::vector<std::string>& paths, const settings& how);
void ping(session& remote, unsigned count, const settings& how);

/// The remote paths that a glob stands for, in the order of their names; a path without glob characters is
/// itself, whether or not there is such a thing. Throws `error::Missing` when a glob matches nothing.
std::vector<std::string> expand(session& remote, const std::string& pattern);

/// Reads commands, at a terminal with line editing, history and completion, until "exit" or the end of input.
/// Standard input that is no terminal is read line by line, without a prompt. Returns the exit status.
int shell(session& remote, const settings& how);

} // namespace qrftp::cli

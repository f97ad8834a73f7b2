#pragma once

#include "settings.hpp"

#include <qrftp/client.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What the subcommands do on a session that is open; the shell does the same with them. Patterns are those of
/// `glob`, paths are remote names as `qrftp::session` takes them unless they are called local. Each throws the
/// client's errors; where several things are named, each that fails is reported on standard error, and
/// `some_failed` thrown at the end.
namespace qrftp::cli {

/// How folders are listed.
struct list_options {
    bool long_form = false;
    bool one_column = false; ///< one name a line, at a terminal too
    bool hidden = false;     ///< also names that begin with a dot; with JSON they are there anyway
    bool by_time = false;    ///< the newest first
    bool by_size = false;    ///< the largest first
    bool reverse = false;
};

struct ls_arguments {
    std::vector<std::string> patterns; ///< of files and folders; none means the working folder
    list_options list;
    bool recursive = false;
};
void ls(session& remote, const ls_arguments& arguments, const settings& options);

struct tree_arguments {
    std::string path;
    unsigned depth = 0; ///< 0 means all
};
void tree(session& remote, const tree_arguments& arguments, const settings& options);

void stat(session& remote, const std::vector<std::string>& patterns, const settings& options);
void cat(session& remote, const std::vector<std::string>& patterns, const settings& options);
void du(session& remote, const std::vector<std::string>& patterns, bool summarize, const settings& options);
void ping(session& remote, unsigned count, const settings& options);
void pwd(session& remote, const settings& options);
/// Prints the name of a folder, remote or local.
void print_folder(const std::string& folder, const settings& options);

struct transfer_arguments {
    std::vector<std::string> sources; ///< get: patterns; put: local paths
    std::string target;               ///< a folder, or the name of the copy of a single source; empty: here
    bool recursive = false;
    tree_options tree; ///< its `transfer` holds for single files too
};
void get(session& remote, const transfer_arguments& arguments, const settings& options);
void put(session& remote, const transfer_arguments& arguments, const settings& options);

struct sync_arguments {
    std::string local;
    std::string remote;
    direction way = direction::fetch;
    sync_options options;
    bool clean_up = false; ///< removes what broken-off transfers left in both folders
};
void sync(session& remote, const sync_arguments& arguments, const settings& options);

/// Fetches a file to a private temporary one, runs the user's editor on it, and sends it back if its content is
/// another one. A file that somebody else has changed meanwhile is refused; what was written is then kept.
void edit(session& remote, const std::string& named, const settings& options);

void rm(session& remote, const std::vector<std::string>& patterns, bool recursive, const settings& options);
void mv(session& remote, const std::string& from, const std::string& to, bool replace, const settings& options);
void mkdir(session& remote, const std::vector<std::string>& paths, bool parents, const settings& options);
void rmdir(session& remote, const std::vector<std::string>& paths, const settings& options);

/// Only the folders of `patterns` themselves, unless `recursive`. `mode` as for chmod(1).
void chmod(session& remote, const std::string& mode, const std::vector<std::string>& patterns, bool recursive,
           const settings& options);
/// `path` is the link's name, or a folder that takes the link in.
void ln(session& remote, const std::string& target, const std::string& path, bool symbolic,
        const settings& options);
void df(session& remote, const std::vector<std::string>& paths, const settings& options);

struct touch_arguments {
    std::vector<std::string> paths;
    bool no_create = false;
    std::optional<std::chrono::sys_seconds> when{}; ///< else now
};
void touch(session& remote, const touch_arguments& arguments, const settings& options);

/// `arguments.target` is on the server of `to`, which may be that of `from`.
void cp(session& from, session& to, const transfer_arguments& arguments, const settings& options);

struct find_arguments {
    std::vector<std::string> patterns;    ///< of the folders to look into
    std::string name{};                   ///< a glob; empty: any
    std::string type{};                   ///< "f", "d" or "l"; empty: any
    std::optional<std::uint64_t> newer{}; ///< changed in the last so many seconds
    std::optional<std::uint64_t> older{};
    std::optional<std::uint64_t> larger{}; ///< than so many bytes
    std::optional<std::uint64_t> smaller{};
    unsigned max_depth = 0; ///< 0 means all
    bool null = false;      ///< ends paths by NUL
};
void find(session& remote, const find_arguments& arguments, const settings& options);

/// Synchronises, then sends what changes in the local folder until it is interrupted, which is thrown as
/// `Cancelled`. A lost connection is opened again.
void watch(session& remote, const sync_arguments& arguments, const settings& options);

} // namespace qrftp::cli

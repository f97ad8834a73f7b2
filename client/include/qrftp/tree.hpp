#pragma once

#include <qrftp/session.hpp>

#include <cstddef>
#include <exception>

namespace qrftp {

/// One step of bringing a tree over.
struct tree_action {
    enum class kind { make_folder, copy, remove_file, remove_folder };
    enum class reason { wanted, missing, newer, other_size, extra };
    kind what = kind::copy;
    reason why = reason::wanted;
    std::string path{}; ///< below both roots, with "/" between segments
    std::uint64_t size = 0;
};

/// How far a tree is; `file` is one of several that are under way.
struct tree_progress {
    unsigned job = 0;   ///< which of the parallel connections, from 0
    std::string path{}; ///< of the file that moved last
    progress file{};
    progress all{};
    std::size_t files_done = 0;
    std::size_t files = 0;
};

struct tree_failure {
    std::string path{};
    std::exception_ptr error{};
};

struct tree_result {
    std::vector<tree_action> done{}; ///< in a dry run: what would be done
    std::vector<tree_failure> failures{};
    /// Lines of remote listings that could not be read, or whose names no local file may get: such entries are
    /// passed over, and nothing is removed then.
    std::vector<std::string> skipped{};
    std::uint64_t bytes = 0; ///< copied
};

struct tree_options {
    transfer_options transfer{}; ///< of each file; its `on_progress` is not used
    /// Globs: "*" and "?" stop at "/", "**" does not, "[…]" is a set. One without "/" is compared with names,
    /// one with "/" with paths below the root. A file must match one of `include`, unless that is empty, and
    /// nothing may match one of `exclude`.
    std::vector<std::string> include{};
    std::vector<std::string> exclude{};
    /// Follows symbolic links; otherwise they are passed over.
    bool follow_links = false;
    /// How many connections work side by side; 0 lets the protocol choose: 4 over FTP, fewer where the server
    /// refuses more; one over SFTP, which carries many files at a time.
    unsigned jobs = 0;
    /// Collects errors in the result and continues; otherwise the first one ends it and is thrown.
    bool keep_going = false;
    /// Only says what would be done.
    bool dry_run = false;
    /// Called when a step has been done, or would be. Calls come one at a time.
    std::function<void(const tree_action&)> on_action{};
    /// Called several times a second and at the end of each file, one call at a time; false ends it all with
    /// `Cancelled`.
    std::function<bool(const tree_progress&)> on_progress{};
};

enum class direction { fetch, send };

struct sync_options : tree_options {
    /// Removes from the destination what the source does not have. What `exclude` names is left alone.
    bool remove_extra = false;
};

/// Fetches the folder `remote_folder` with all that is in it into `local_folder`, which is made when missing.
///
/// Nothing is written outside `local_folder`: a name that could lead out of it is passed over, and a symbolic
/// link in the place of a folder is a failure (`UnsafeName`), unless links are followed. Throws what `list` and
/// `fetch` throw.
QRFTPCLIENT_EXPORT tree_result fetch_tree(session& from, const std::string& remote_folder,
                                          const std::filesystem::path& local_folder,
                                          const tree_options& options = {});

/// Sends the folder `local_folder` with all that is in it into `remote_folder`, which is made when missing.
QRFTPCLIENT_EXPORT tree_result send_tree(session& to, const std::filesystem::path& local_folder,
                                         const std::string& remote_folder, const tree_options& options = {});

/// Brings over the files that the destination does not have, has older, or has in another size. Where a
/// listing's time is too coarse to tell, the server is asked for the exact one; if it does not tell, files of
/// the same size are taken for the same. Nothing is removed when a part of the source could not be read.
QRFTPCLIENT_EXPORT tree_result synchronise(session& with, const std::filesystem::path& local_folder,
                                           const std::string& remote_folder, direction way,
                                           const sync_options& options = {});

} // namespace qrftp

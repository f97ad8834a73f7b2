#pragma once

#include <qrftp/session.hpp>

#include <cstddef>
#include <exception>

namespace qrftp {

/// One step of bringing a tree over.
struct tree_action {
    enum class kind { make_folder, copy, remove_file, remove_folder, make_link };
    enum class reason { wanted, missing, newer, other_size, extra, other_content, other_target };
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
    /// Links and special files of the source that were passed over, and what could not be followed any further.
    std::vector<std::string> passed_over{};
    std::uint64_t bytes = 0; ///< copied
};

/// Callbacks are called one at a time, with several connections on threads of the library too. They must not
/// use the session.
struct tree_options {
    transfer_options transfer{}; ///< of each file; its `on_progress` is not used
    /// Globs: "*" and "?" stop at "/", "**" does not, "[…]" is a set. One without "/" is compared with names,
    /// one with "/" with paths below the root. A file must match one of `include`, unless that is empty, and
    /// nothing may match one of `exclude`. A final "/" stands for folders only, a leading one for the root of
    /// the tree.
    std::vector<std::string> include{};
    std::vector<std::string> exclude{};
    /// Where it is not empty: only these paths below the root, with all that is below them. Everything else is
    /// left alone on both sides.
    std::vector<std::string> only{};
    /// Copies symbolic links of the source as links, byte for byte, wherever they lead. No transfer ever goes
    /// through a link that it made. FTP: relative ones cannot be sent (`NotSupported`).
    bool copy_links = false;
    /// Follows symbolic links of the source; otherwise they are passed over, unless `copy_links` is set. Those
    /// of the destination never are: one in the place of a folder is a failure (`UnsafeName`), one in the place
    /// of a file is replaced.
    bool follow_links = false;
    /// How deep folders may be nested; deeper ones are a failure (`UnsafeName`).
    unsigned max_depth = 1000;
    /// How many connections work side by side; 0 lets the protocol choose: 4 over FTP, fewer where the server
    /// refuses more; one over SFTP, which carries many files at a time.
    unsigned jobs = 0;
    /// Collects errors in the result and continues; otherwise the first one ends it and is thrown.
    bool keep_going = false;
    /// Only says what would be done.
    bool dry_run = false;
    /// Called when a step has been done, or would be.
    std::function<void(const tree_action&)> on_action{};
    /// Called several times a second and at the end of each file; false ends it all with `Cancelled`.
    std::function<bool(const tree_progress&)> on_progress{};
};

enum class direction { fetch, send };

/// What tells that a file of the destination is out of date.
enum class sync_comparison {
    size_and_time, ///< another size, or older
    size,          ///< another size
    checksum,      ///< another size or another content, as the server computes it (`session::checksum_support`)
};

/// What becomes of files of the destination that are newer than the source's.
enum class newer_targets {
    replace, ///< they are replaced when their size or content differs
    skip,    ///< they are left alone
    refuse,  ///< the same, and each is a failure (`AlreadyExists`), before anything is changed unless collected
};

struct sync_options : tree_options {
    /// Removes from the destination what the source does not have. What `exclude` names is left alone, and
    /// files of transfers under way (".qrftp-….part", ".qrftp-….old"). Nothing is removed when a part of either
    /// side could not be read, and nothing when the source is empty and the destination is not (`EmptySource`),
    /// unless `force` is set; nor what stands at or below a link or special file of the source that is not
    /// copied.
    bool remove_extra = false;
    bool force = false;
    /// Files that are copied whatever their sizes and times say: something else knows that they changed.
    std::vector<std::string> changed{};
    /// Changes nothing where more than so many files and folders would be removed (`TooManyRemovals`).
    std::optional<std::size_t> max_removals{};
    sync_comparison comparison = sync_comparison::size_and_time;
    newer_targets newer = newer_targets::replace;
};

/// Fetches the folder `remote_folder` with all that is in it into `local_folder`, which is made when missing.
///
/// Nothing is written outside `local_folder`: a name that could lead out of it is passed over, and a symbolic
/// link in the place of a folder is a failure (`UnsafeName`). Throws what `list` and `fetch` throw.
QRFTPCLIENT_EXPORT tree_result fetch_tree(session& from, const std::string& remote_folder,
                                          const std::filesystem::path& local_folder,
                                          const tree_options& options = {});

/// Sends the folder `local_folder` with all that is in it into `remote_folder`, which is made when missing.
QRFTPCLIENT_EXPORT tree_result send_tree(session& to, const std::filesystem::path& local_folder,
                                         const std::string& remote_folder, const tree_options& options = {});

/// Brings over the files that the destination does not have, has older, or has in another size. Where a
/// listing's time is too coarse to tell, the server is asked for the exact one; if it does not tell, files of
/// the same size are taken for the same. Nothing is removed when a part of either side could not be read.
QRFTPCLIENT_EXPORT tree_result synchronise(session& with, const std::filesystem::path& local_folder,
                                           const std::string& remote_folder, direction way,
                                           const sync_options& options = {});

/// Whether `include` and `exclude` leave out what is at `path` below the root, or a folder above it; or it is a
/// file of a transfer under way. Sends nothing.
[[nodiscard]] QRFTPCLIENT_EXPORT bool leaves_out(const tree_options& options, const std::string& path,
                                                 entry_kind kind);

/// Removes files of transfers that broke off (".qrftp-….part") and are certainly older than `age` from a remote
/// folder and all below it; returns their paths. Where the listing's time does not tell, asks for the exact one
/// (FTP: MDTM). Files that were moved aside (".qrftp-….old") stay: one may be the last copy of its target. With
/// `dry_run`, nothing is removed. Throws what `list` throws.
QRFTPCLIENT_EXPORT std::vector<std::string> clean_up(session& server, const std::string& remote_folder,
                                                     std::chrono::seconds age = std::chrono::hours(24),
                                                     bool dry_run = false);
/// The same in a local folder; links in it are not followed. Throws `LocalFileError`.
QRFTPCLIENT_EXPORT std::vector<std::filesystem::path>
clean_up(const std::filesystem::path& local_folder, std::chrono::seconds age = std::chrono::hours(24),
         bool dry_run = false);

/// A remote and a local file.
struct file_pair {
    std::string remote{};
    std::filesystem::path local{};
};

/// Fetches or sends files, as many at a time as the protocol carries. Their targets differ, else
/// `InvalidOption` is thrown before anything is sent. Of the options, those about folders have no meaning.
QRFTPCLIENT_EXPORT tree_result fetch_files(session& from, const std::vector<file_pair>& files,
                                           const tree_options& options = {});
QRFTPCLIENT_EXPORT tree_result send_files(session& to, const std::vector<file_pair>& files,
                                          const tree_options& options = {});

} // namespace qrftp

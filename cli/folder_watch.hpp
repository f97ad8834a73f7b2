#pragma once

#include "unique_fd.hpp"

#include <qrftp/entry.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

struct inotify_event;

namespace qrftp::cli {

/// What has happened below a folder, by paths below it.
struct folder_changes {
    struct move {
        std::string from;
        std::string to;
        bool is_folder = false;
    };

    std::vector<move> moves{};       ///< in their order
    std::set<std::string> written{}; ///< files with another content, under their last names
    std::set<std::string> touched{}; ///< whatever else may differ: new folders, links, times, what is gone
    bool has_lost_some = false;      ///< there was more than the system keeps: anything may differ

    [[nodiscard]] bool empty() const
    {
        return moves.empty() && written.empty() && touched.empty() && !has_lost_some;
    }
};

/// Follows a local folder with all below it (inotify). Symbolic links are not followed. Throws
/// `LocalFileError`, also when the folder itself goes.
class folder_watch {
public:
    /// Folders and files for which `leaves_out` is true are not looked at.
    using leave_out = std::function<bool(const std::string& path, entry_kind kind)>;

    folder_watch(std::filesystem::path root, leave_out leaves_out);

    /// Readable when something has happened.
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    /// Adds what has happened since the last call, without waiting; false where it was nothing.
    bool read(folder_changes& changes);
    /// Settles what was moved away and did not come back: it is gone.
    void settle(folder_changes& changes);

private:
    struct pending_move {
        std::string from;
        bool is_folder = false;
    };

    void add(const std::string& folder);
    bool add_one(const std::string& folder);
    void forget(const std::string& folder);
    void rename(const std::string& from, const std::string& to);
    [[nodiscard]] bool is_left_out(const std::string& path, bool is_folder) const;

    void handle(const inotify_event& event, const std::string& name, folder_changes& changes);
    void on_entry(const inotify_event& event, const std::string& path, folder_changes& changes);
    void on_new(const std::string& path, bool is_folder, bool is_whole, folder_changes& changes);
    void on_gone(const std::string& gone, bool is_folder, folder_changes& changes);
    void on_moved(const pending_move& source, const std::string& to, folder_changes& changes);

    std::filesystem::path root_;
    leave_out leaves_out_;
    unique_fd descriptor_;
    std::map<int, std::string> paths_; ///< of the folders, by their watches
    std::map<std::uint32_t, pending_move> moved_away_;
};

} // namespace qrftp::cli

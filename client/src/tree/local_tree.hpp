#pragma once

#include "../transfer/local_target.hpp"

#include <zorbel/io/common/file/Folder.hpp>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qrftp {

/// A local folder with all that is below it, reached by open folders segment by segment: one that is swapped
/// for a symbolic link meanwhile leads nowhere. Throws `LocalFileError`, and `UnsafeName` where a link stands
/// in the way. Any number of threads.
class local_tree {
public:
    using folder_ptr = std::shared_ptr<zorbel::io::common::file::Folder>;

    /// Links below the root are followed only where `follow` says so, a link in the place of the root where
    /// `follow_root` does.
    explicit local_tree(std::filesystem::path root, bool follow = false, bool follow_root = true);

    [[nodiscard]] bool exists() const;
    /// Makes the root with the folders above it.
    void make_root();
    void make_folder(const std::string& path);
    void make_link(const std::string& path, const std::string& target, bool replace);
    void remove_file(const std::string& path);
    void remove_folder(const std::string& path);

    /// The folder at `path` below the root; the root for "".
    folder_ptr folder(const std::string& path);
    /// The name at `path`, in its folder.
    local_place place(const std::string& path);
    /// `path` below the root, for messages.
    [[nodiscard]] std::filesystem::path shown(const std::string& path) const;

private:
    folder_ptr open_root() const;
    folder_ptr open_below(folder_ptr from, const std::string& done, const std::string& rest) const;

    std::filesystem::path root_;
    bool follow_;
    bool follow_root_;
    std::mutex mutex_;
    std::string last_path_; ///< of the folder that was asked for last
    folder_ptr last_;
    folder_ptr root_folder_;
};

} // namespace qrftp

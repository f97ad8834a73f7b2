#include "local_tree.hpp"

#include "../remote_path.hpp"
#include "../transfer/local_error.hpp"

#include <qrftp/error.hpp>

#include <algorithm>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;
namespace files = zorbel::io::common::file;

namespace {

/// Throws `UnsafeName` where `name` is a link; one that is made in the meantime is not followed either.
local_tree::folder_ptr open_no_link(const files::Folder& above, const std::string& name, const fs::path& shown)
{
    const auto found = above.status(name);
    if (found && found->type == fs::file_type::symlink) {
        throw UnsafeName(shown.string(), "a symbolic link stands in its way");
    }
    return above.open_folder(name, files::Folder::Links::refuse);
}

} // namespace

local_tree::local_tree(fs::path root, bool follow, bool follow_root)
    : root_(std::move(root)), follow_(follow), follow_root_(follow_root)
{
}

bool local_tree::exists() const
{
    std::error_code code;
    return fs::exists(fs::symlink_status(root_, code));
}

void local_tree::make_root()
{
    std::error_code code;
    if (!follow_root_ && fs::is_symlink(fs::symlink_status(root_, code))) {
        throw UnsafeName(root_.string(), "a symbolic link stands in its place");
    }
    fs::create_directories(root_, code);
    if (code && !fs::is_directory(root_)) {
        throw LocalFileError(root_.string(), code, fs::exists(root_) ? "it is no folder" : "");
    }
}

void local_tree::make_folder(const std::string& path)
{
    const local_place made = place(path);
    with_local_errors(made.shown, [&] {
        const auto there = made.folder->status(made.name);
        if (!there) {
            made.folder->make_folder(made.name);
        } else if (there->type == fs::file_type::symlink) {
            throw UnsafeName(made.shown.string(), "a symbolic link stands in its place");
        } else if (there->type != fs::file_type::directory) {
            throw LocalFileError(made.shown.string(), std::make_error_code(std::errc::file_exists),
                                 "it is no folder");
        }
    });
}

void local_tree::make_link(const std::string& path, const std::string& target, bool replace)
{
    const local_place made = place(path);
    with_local_errors(made.shown, [&] {
        const std::string temporary = remote_path::temporary_name();
        made.folder->make_link(temporary, target);
        try {
            made.folder->rename(temporary, made.name, replace);
        } catch (...) {
            made.folder->remove_file(temporary);
            throw;
        }
    });
}

void local_tree::remove_file(const std::string& path)
{
    const local_place gone = place(path);
    with_local_errors(gone.shown, [&] { gone.folder->remove_file(gone.name); });
}

void local_tree::remove_folder(const std::string& path)
{
    const local_place gone = place(path);
    {
        const std::lock_guard lock(mutex_);
        last_.reset();
    }
    with_local_errors(gone.shown, [&] { gone.folder->remove_folder(gone.name); });
}

local_tree::folder_ptr local_tree::folder(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    if (root_folder_ == nullptr) {
        root_folder_ = with_local_errors(root_, [&] { return open_root(); });
    }
    if (last_ != nullptr && path == last_path_) {
        return last_;
    }
    const bool below_last = last_ != nullptr && path.starts_with(last_path_ + '/');
    folder_ptr found = below_last ? open_below(last_, last_path_, path.substr(last_path_.size() + 1))
                                  : open_below(root_folder_, "", path);
    last_path_ = path;
    return last_ = std::move(found);
}

local_tree::folder_ptr local_tree::open_root() const
{
    const fs::path whole = fs::absolute(root_).lexically_normal();
    const fs::path path = whole.has_filename() ? whole : whole.parent_path();
    return follow_root_ || !path.has_filename()
               ? files::open_folder(root_)
               : open_no_link(*files::open_folder(path.parent_path()), path.filename(), root_);
}

local_tree::folder_ptr local_tree::open_below(folder_ptr from, const std::string& done,
                                              const std::string& rest) const
{
    using links = files::Folder::Links;
    for (std::size_t begin = 0; begin < rest.size();) {
        const std::size_t end = std::min(rest.find('/', begin), rest.size());
        const std::string name = rest.substr(begin, end - begin);
        const fs::path at = shown(done) / rest.substr(0, end);
        begin = end + 1;
        from = with_local_errors(at, [&] {
            return follow_ ? from->open_folder(name, links::follow) : open_no_link(*from, name, at);
        });
    }
    return from;
}

local_place local_tree::place(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string above = slash == std::string::npos ? "" : path.substr(0, slash);
    return {folder(above), path.substr(slash == std::string::npos ? 0 : slash + 1), shown(path)};
}

fs::path local_tree::shown(const std::string& path) const
{
    return path.empty() ? root_ : root_ / path;
}

} // namespace qrftp

#include "local_target.hpp"

#include "../remote_path.hpp"
#include "local_checksum.hpp"
#include "local_error.hpp"

#include <fmt/format.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;
namespace files = zorbel::io::common::file;

namespace {

[[noreturn]] void throw_local(const fs::path& shown, std::errc code, const std::string& reason = {})
{
    throw LocalFileError(shown.string(), std::make_error_code(code), reason);
}

/// Whether `link` leads to something that has no other name which could be replaced: a pipe, a device, or what
/// the process has open ("/dev/stdout").
bool leads_to_stream(const fs::path& link)
{
    std::error_code none;
    const fs::path folder = fs::canonical(link.parent_path().empty() ? "." : link.parent_path(), none);
    const bool is_descriptor = folder.string().starts_with("/proc/") && folder.filename() == "fd";
    const fs::file_status found = fs::status(link, none);
    return is_descriptor || (fs::is_other(found) && fs::exists(found));
}

/// Whether `link` is somebody else's in a folder where everybody can make some (/tmp): the kernel refuses to
/// follow it (fs.protected_symlinks), but is not asked. What is gone meanwhile may be back as such a link.
bool is_strangers_link(const fs::path& link)
{
    constexpr mode_t shared = S_ISVTX | S_IWOTH;
    const fs::path above = link.parent_path().empty() ? "." : link.parent_path();
    struct stat found = {};
    struct stat folder = {};
    return ::lstat(link.c_str(), &found) == -1 || ::stat(above.c_str(), &folder) == -1 ||
           ((folder.st_mode & shared) == shared && found.st_uid != ::geteuid() &&
            found.st_uid != folder.st_uid);
}

/// What the links at `path` lead to in the end, or the last one before a stream.
fs::path follow_links(fs::path path)
{
    constexpr int most_links = 40;
    std::error_code none;
    for (int followed = 0; fs::is_symlink(fs::symlink_status(path, none)); ++followed) {
        if (followed == most_links) {
            throw_local(path, std::errc::too_many_symbolic_link_levels);
        }
        if (is_strangers_link(path)) {
            throw_local(path, std::errc::permission_denied,
                        "it is a symbolic link of another user in a folder that everybody can write to");
        }
        if (leads_to_stream(path)) {
            break;
        }
        const fs::path target = fs::read_symlink(path, none);
        path = target.is_absolute() ? target : path.parent_path() / target;
    }
    return path;
}

/// Whether an earlier transfer of this user's has left it: the name can be computed by others too.
bool is_own_part(const files::Status& found)
{
    constexpr auto own = fs::perms::owner_read | fs::perms::owner_write;
    return found.type == fs::file_type::regular && found.mode == own && found.owner == ::geteuid() &&
           found.names == 1;
}

} // namespace

local_place find_local_place(const fs::path& path, bool follow)
{
    const fs::path target = follow ? follow_links(path) : path;
    const fs::path name = target.filename();
    if (name.empty() || name == "." || name == "..") {
        throw_local(path, std::errc::is_a_directory);
    }
    const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    std::error_code none;
    const bool is_stream = follow && fs::is_symlink(fs::symlink_status(target, none));
    if (!fs::exists(folder, none)) {
        throw LocalFileError::missing_folder(folder.string(), true);
    }
    return with_local_errors(folder, [&] {
        return local_place{files::open_folder(folder), name.string(), path, is_stream};
    });
}

local_target::local_target(local_place place, transfer_options options, bool is_in_tree)
    : place_(std::move(place)), options_(std::move(options)), completes_(options_.resume && !is_in_tree)
{
    existing_ =
        with_local_errors(place_.shown, [&] { return place_.folder->status(place_.name, place_.links()); });
    if (!existing_) {
        direct_ = options_.in_place;
        return;
    }
    if (existing_->type == fs::file_type::directory) {
        throw_local(place_.shown, std::errc::is_a_directory);
    }
    const bool replaceable = !place_.is_stream && (existing_->type == fs::file_type::regular ||
                                                   existing_->type == fs::file_type::symlink);
    if (!replaceable && (is_in_tree || !options_.follow_target)) {
        throw UnsafeName(place_.shown.string(), "it is no ordinary file");
    }
    has_places_ = replaceable;
    direct_ = !replaceable || options_.in_place || completes_;
    if (direct_ && existing_->type == fs::file_type::symlink) {
        throw UnsafeName(place_.shown.string(), "it is a symbolic link");
    }
    if (replaceable) {
        refuse_existing();
    }
}

local_target::~local_target()
{
    if (file_ == nullptr || temporary_.empty()) {
        return;
    }
    file_.reset();
    if (keeps_part_) {
        return;
    }
    try {
        place_.folder->remove_file(temporary_);
    } catch (...) { // NOLINT(bugprone-empty-catch): the transfer's own error is the one to report
    }
}

void local_target::refuse_existing() const
{
    if (!options_.replace && !completes_) {
        throw AlreadyExists(place_.shown.string());
    }
}

std::uint64_t local_target::find_part(const std::string& source, const file_facts& facts)
{
    if (!options_.resume || !has_places_) {
        return 0;
    }
    if (completes_ && existing_ && facts.modified && existing_->modified < *facts.modified) {
        // What was there before the source was last changed is no beginning of it.
        completes_ = false;
        direct_ = options_.in_place;
        refuse_existing();
    }
    if (!options_.in_place && facts.size && facts.modified) {
        const std::string name = remote_path::temporary_name(fmt::format(
            "{}\n{}\n{}\n{}", place_.name, source, *facts.size, facts.modified->time_since_epoch().count()));
        part_ = with_local_errors(place_.shown, [&] { return place_.folder->status(name); });
        const bool is_ours = part_ && is_own_part(*part_);
        if (is_ours || (!part_ && !(existing_ && completes_))) {
            direct_ = false;
            keeps_part_ = true;
            temporary_ = name;
            return is_ours ? std::min(part_->size, *facts.size) : 0;
        }
    }
    part_.reset();
    return existing_ && completes_ ? existing_->size : 0;
}

bool local_target::open(std::uint64_t kept)
{
    if (file_ != nullptr) {
        return true;
    }
    kept_ = kept;
    if (direct_) {
        return open_target();
    }
    with_local_errors(place_.shown, [&] { open_part(); });
    return true;
}

void local_target::open_part()
{
    using how = files::Folder::Open;
    if (temporary_.empty()) {
        temporary_ = remote_path::temporary_name();
    }
    file_ = place_.folder->open_file(temporary_, part_ ? how::update : how::create);
    if (keeps_part_) {
        lock();
        const files::Status opened = file_->status();
        if (part_ && (!is_own_part(opened) || opened.size < kept_)) {
            throw CannotResume(place_.shown.string(), "what was left was changed meanwhile");
        }
        file_->truncate(kept_);
    }
}

void local_target::lock()
{
    if (!file_->lock()) {
        throw_local(place_.shown, std::errc::device_or_resource_busy, "another transfer is writing it");
    }
}

bool local_target::open_target()
{
    using open = files::Folder::Open;
    const open how = place_.is_stream ? open::append : open::update;
    try {
        with_local_errors(place_.shown,
                          [&] { file_ = place_.folder->open_file(place_.name, how, place_.links()); });
    } catch (const LocalFileError& failure) {
        const bool is_pipe = existing_ && existing_->type == fs::file_type::fifo; // A socket never opens.
        if (is_pipe && failure.code() == std::errc::no_such_device_or_address) {
            return false;
        }
        throw;
    }
    with_local_errors(place_.shown, [&] {
        has_places_ = !place_.is_stream && file_->status().type == fs::file_type::regular;
        if (!has_places_) {
            return;
        }
        lock();
        if (file_->status().size < kept_) {
            throw CannotResume(place_.shown.string(), "it became shorter meanwhile");
        }
        file_->truncate(kept_);
    });
    return true;
}

std::optional<std::uint64_t> local_target::size() const
{
    return has_places_ ? std::optional(with_local_errors(place_.shown, [&] { return file_->status().size; }))
                       : std::nullopt;
}

std::size_t local_target::write(std::uint64_t position, std::string_view bytes)
{
    constexpr std::chrono::milliseconds a_little(50);
    return with_local_errors(place_.shown, [&] {
        if (!has_places_) {
            return file_->write_some(bytes, a_little);
        }
        file_->write(position, bytes);
        return bytes.size();
    });
}

std::unique_ptr<files::LocalFile> local_target::open_written() const
{
    return place_.folder->open_file(direct_ ? place_.name : temporary_, files::Folder::Open::read);
}

std::optional<checksum> local_target::content(hash_algorithm algorithm) const
{
    return has_places_ ? std::optional(with_local_errors(
                             place_.shown, [&] { return checksum_of(*open_written(), algorithm); }))
                       : std::nullopt;
}

bool local_target::restart()
{
    if (kept_ > 0) {
        return false;
    }
    if (file_ != nullptr && has_places_) {
        with_local_errors(place_.shown, [&] { file_->truncate(0); });
    }
    return has_places_ || file_ == nullptr;
}

fs::perms local_target::final_mode(const file_facts& source) const
{
    static const fs::perms usual = files::default_file_mode(); // read once: it costs a file
    constexpr auto set_id_bits = fs::perms::set_uid | fs::perms::set_gid;
    constexpr auto others = fs::perms::group_all | fs::perms::others_all;
    constexpr auto readable = fs::perms::group_read | fs::perms::others_read;
    if (options_.keep_mode && source.mode) {
        return *source.mode & fs::perms::all;
    }
    const bool secret = source.mode && (*source.mode & readable) == fs::perms::none;
    const fs::perms own = secret ? usual & ~(others & ~*source.mode) : usual;
    if (existing_ && existing_->type == fs::file_type::regular) {
        const bool is_strangers = existing_->owner != ::geteuid(); // who must not open what will be ours
        return existing_->mode & (is_strangers ? own : ~set_id_bits);
    }
    return own;
}

void local_target::commit(const file_facts& source)
{
    with_local_errors(place_.shown, [&] {
        if (has_places_ && (!direct_ || !existing_ || options_.keep_mode)) {
            file_->set_mode(final_mode(source));
        }
        if (has_places_ && options_.keep_time && source.modified) {
            file_->set_modification_time(*source.modified);
        }
        if (has_places_ && options_.sync) {
            file_->sync();
        }
        file_->close();
        if (!direct_) {
            try {
                place_.folder->rename(temporary_, place_.name, options_.replace);
            } catch (const fs::filesystem_error& failure) {
                if (!options_.replace && failure.code() == std::errc::file_exists) {
                    throw AlreadyExists(place_.shown.string());
                }
                throw;
            }
            temporary_.clear();
            if (options_.sync) {
                place_.folder->sync();
            }
        }
    });
}

} // namespace qrftp

#include "send.hpp"

#include "../remote_path.hpp"
#include "fetch.hpp"
#include "local_checksum.hpp"
#include "local_error.hpp"
#include "local_target.hpp"
#include "verify.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;
namespace files = zorbel::io::common::file;

namespace {

std::string temporary_beside(const std::string& target)
{
    return remote_path::join(remote_path::parent(target), remote_path::temporary_name());
}

/// What tells this file, as it is now, from all others, where what is left of it may be continued; else empty.
/// Two uploads would append to it, so it belongs to the one that has the lock on the source. Another one, which
/// may have another target, begins anew; in place it would spoil what the first one writes.
std::string resumed_identity(files::LocalFile& source, const fs::path& shown, const std::string& target,
                             const transfer_options& options)
{
    const bool is_alone = options.resume && with_local_errors(shown, [&] { return source.lock(); });
    if (options.resume && !is_alone && options.in_place) {
        throw LocalFileError(shown.string(), std::make_error_code(std::errc::device_or_resource_busy),
                             "another transfer that resumes is sending it");
    }
    if (!is_alone) {
        return {};
    }
    const files::Status status = with_local_errors(shown, [&] { return source.status(); });
    return fmt::format("{}\n{}\n{}\n{}", target, fs::absolute(shown).lexically_normal().string(), status.size,
                       status.modified.time_since_epoch().count());
}

} // namespace

std::unique_ptr<files::LocalFile> open_source(const fs::path& path)
{
    const local_place place = find_local_place(path);
    return with_local_errors(path, [&] {
        // Looked at before it is opened: opening a pipe waits for somebody to write into it.
        const auto found = place.folder->status(place.name, place.links());
        if (!found) {
            throw LocalFileError(path.string(), std::make_error_code(std::errc::no_such_file_or_directory));
        }
        if (found->type == fs::file_type::directory) {
            throw LocalFileError(path.string(), std::make_error_code(std::errc::is_a_directory));
        }
        if (found->type != fs::file_type::regular) {
            throw LocalFileError(path.string(), std::make_error_code(std::errc::not_supported),
                                 "it is no ordinary file");
        }
        return place.folder->open_file(place.name, files::Folder::Open::read, place.links());
    });
}

basic_upload::basic_upload(std::string target, const transfer_options& options, meter& progress,
                           const std::string& identity, target_facts known)
    : upload(std::move(target)), options_(options), meter_(progress), known_(known)
{
    if (options.in_place) {
        path_ = this->target();
    } else if (options.resume && !identity.empty()) {
        path_ = remote_path::join(remote_path::parent(this->target()), remote_path::temporary_name(identity));
        keeps_temporary_ = true;
    } else {
        path_ = temporary_beside(this->target());
    }
}

bool basic_upload::complete_target(const file_facts& there)
{
    const auto changed = source_facts().modified;
    is_outdated_ = changed && there.modified && *there.modified < *changed;
    path_ = is_outdated_ ? path_ : target();
    return !is_outdated_;
}

void basic_upload::rename_temporary()
{
    path_ = temporary_beside(target());
    keeps_temporary_ = false;
    meter_.restart();
}

file_facts basic_upload::facts_to_set(const std::optional<entry>& replaced) const
{
    constexpr auto set_id_bits = fs::perms::set_uid | fs::perms::set_gid;
    constexpr auto readable = fs::perms::group_read | fs::perms::others_read;
    constexpr auto owner_only = fs::perms::owner_read | fs::perms::owner_write;
    const file_facts source = source_facts();
    file_facts result;
    if (options_.keep_time) {
        result.modified = source.modified;
    }
    if (options_.keep_mode && source.mode) {
        result.mode = *source.mode & fs::perms::all;
    } else if (is_temporary() && replaced && replaced->kind == entry_kind::file && replaced->mode) {
        result.mode = *replaced->mode & ~set_id_bits;
    } else if (is_temporary() && !replaced && source.mode && (*source.mode & readable) == fs::perms::none) {
        result.mode = owner_only; // What was for nobody else here is for nobody else there.
    }
    return result;
}

file_upload::file_upload(std::unique_ptr<files::LocalFile> source, fs::path shown, const std::string& target,
                         const transfer_options& options, meter& progress, bool is_in_parts, target_facts known)
    : basic_upload(target, options, progress, resumed_identity(*source, shown, target, options), known),
      source_(std::move(source)), shown_(std::move(shown)),
      status_(with_local_errors(shown_, [&] { return source_->status(); })), is_in_parts_(is_in_parts)
{
    if (options.resume && !options.in_place && !basic_upload::keeps_temporary()) {
        begin_anew();
    }
}

byte_range file_upload::begin(const std::optional<file_facts>& there)
{
    const std::lock_guard lock(mutex_);
    byte_range wanted{0, status_.size};
    const bool is_beginning = resumes() && there && (is_temporary() || complete_target(*there));
    if (there && !is_beginning && !may_replace()) {
        throw AlreadyExists(target());
    }
    if (is_beginning) {
        if (!there->size) {
            throw CannotResume(target(), "the server does not tell its size");
        }
        wanted.begin = resume_point(target(), *there->size, status_.size);
    }
    progress().start(status_.size, wanted.begin);
    return wanted;
}

/// A file that grows is sent as long as it was found.
std::size_t file_upload::read(std::uint64_t offset, std::span<char> buffer)
{
    const std::uint64_t left = status_.size - std::min(offset, status_.size);
    buffer = buffer.first(std::min<std::uint64_t>(buffer.size(), left));
    const std::size_t got =
        buffer.empty() ? 0 : with_local_errors(shown_, [&] { return source_->read(offset, buffer); });
    if (got == 0 && !buffer.empty()) {
        throw LocalFileError(shown_.string(), std::make_error_code(std::errc::io_error),
                             "it became shorter while it was sent");
    }
    return got;
}

bool file_upload::is_unchanged()
{
    const std::lock_guard lock(mutex_);
    const files::Status now = with_local_errors(shown_, [&] { return source_->status(); });
    if (now.size == status_.size && now.modified == status_.modified) {
        return true;
    }
    if (is_in_parts_) {
        throw SizeMismatch(shown_.string(), "it was changed while it was sent");
    }
    status_ = now;
    progress().restart();
    return false;
}

void file_upload::verify(const checksum& stored)
{
    check_same(target(), with_local_errors(shown_, [&] { return checksum_of(*source_, stored.algorithm); }),
               stored);
}

file_facts file_upload::source_facts() const
{
    return {.size = status_.size, .modified = status_.modified, .mode = status_.mode};
}

data_upload::data_upload(const std::function<std::size_t(std::span<char>)>& read, std::string target,
                         const transfer_options& options, meter& progress,
                         const std::optional<checksum_method>& verify)
    : basic_upload(std::move(target), options, progress), read_(read)
{
    if (verify) {
        content_.emplace(verify->algorithm);
    }
}

byte_range data_upload::begin(const std::optional<file_facts>& there)
{
    if (resumes() && there) {
        throw CannotResume(target(), "its source can be read only once");
    }
    progress().start(0, 0);
    return {};
}

std::size_t data_upload::read(std::uint64_t /*offset*/, std::span<char> buffer)
{
    const std::size_t got = std::min(read_(buffer), buffer.size());
    if (content_) {
        content_->add({buffer.data(), got});
    }
    return got;
}

void data_upload::verify(const checksum& stored)
{
    if (content_) {
        check_same(target(), content_->finish(), stored);
    }
}

} // namespace qrftp

#include "local_file.hpp"

#include "names.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/common/file/errors.hpp>

#include <chrono>
#include <system_error>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;
namespace files = zorbel::io::common::file;
using files::OpenMode;
using files::raise_file_error;
using foundation::core::except::raise;
namespace errors = ZORBEL::io::common::file;

namespace {

void check(const fs::path& path, const std::error_code& code)
{
    if (code) {
        raise_file_error(path, code);
    }
}

/// Calls `work`, whose errors name the target instead of the temporary name.
template <class Work>
void about(const fs::path& target, Work work)
{
    try {
        work();
    } catch (const errors::PermissionDenied&) {
        raise<errors::PermissionDenied>(files::display_path(target));
    } catch (const errors::NoSuchFile&) {
        raise<errors::NoSuchFile>(files::display_path(target));
    } catch (const errors::DiskFull&) {
        raise<errors::DiskFull>(files::display_path(target));
    }
}

/// A device or a pipe is written to itself: it cannot be replaced.
bool replaceable(const fs::path& path)
{
    std::error_code ignored; // What is not there can be made.
    const fs::file_status status = fs::status(path, ignored);
    return !fs::exists(status) || fs::is_regular_file(status);
}

} // namespace

void write_all(files::Stream& file, const fs::path& path, std::string_view bytes)
{
    if (file.write(bytes.data(), static_cast<long>(bytes.size())) != static_cast<long>(bytes.size())) {
        raise_file_error(path, std::make_error_code(std::errc::no_space_on_device));
    }
}

std::int64_t modification_time(const fs::path& path)
{
    std::error_code code;
    const auto time = fs::last_write_time(path, code);
    check(path, code);
    const auto system = std::chrono::file_clock::to_sys(time);
    return std::chrono::floor<std::chrono::seconds>(system).time_since_epoch().count();
}

void set_modification_time(const fs::path& path, std::int64_t seconds)
{
    std::error_code code;
    const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
    fs::last_write_time(path, std::chrono::file_clock::from_sys(time), code);
    check(path, code);
}

void raise_folder_error(const fs::path& path, std::error_code reason)
{
    if (reason == std::errc::not_a_directory || reason == std::errc::file_exists) {
        raise<errors::FileError>(files::display_path(path), "it is not a folder");
    }
    raise_file_error(path, reason);
}

local_target::local_target(fs::path target, bool in_place, std::uint64_t offset)
    : target_(std::move(target)), offset_(offset)
{
    path_ = in_place || !replaceable(target_) ? target_ : target_.parent_path() / names::temporary();
    open();
}

local_target::~local_target()
{
    if (path_ != target_) {
        stream_.reset();
        std::error_code ignored; // The transfer's own error is the one to report.
        fs::remove(path_, ignored);
    }
}

void local_target::open()
{
    const OpenMode mode = path_ != target_ ? OpenMode::create
                          : offset_ > 0    ? OpenMode::append
                                           : OpenMode::write;
    about(target_, [&] { stream_ = files::file_system()->open(path_, mode); });
}

void local_target::write(std::string_view bytes)
{
    about(target_, [&] { write_all(*stream_, path_, bytes); });
    written_ += bytes.size();
}

void local_target::restart()
{
    stream_->close();
    std::error_code code;
    if (replaceable(path_)) {
        fs::resize_file(path_, offset_, code);
        check(path_, code);
    }
    stream_ = files::file_system()->open(path_, OpenMode::append);
    written_ = 0;
}

void local_target::commit(std::optional<std::int64_t> time)
{
    about(target_, [&] { stream_->close(); });
    if (time && replaceable(path_)) {
        set_modification_time(path_, *time);
    }
    if (path_ != target_) {
        std::error_code code;
        // A file that is replaced keeps its permissions.
        const fs::file_status old = fs::status(target_, code);
        if (fs::exists(old)) {
            fs::permissions(path_, old.permissions(), code);
            check(path_, code);
        }
        code.clear();
        fs::rename(path_, target_, code);
        check(target_, code);
        path_ = target_;
    }
}

} // namespace qrftp

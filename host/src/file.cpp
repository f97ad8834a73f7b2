#include "posix_file_system.hpp"
#include "posix_folder.hpp"

#include <fl/i18n/errors.hpp>
#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/core/except/Exception.hpp>
#include <foundation/text/escape.hpp>
#include <zorbel/io/common/file/FileSystem.hpp>
#include <zorbel/io/common/file/errors.hpp>

#include <array>
#include <cerrno>
#include <mutex>
#include <string>
#include <utility>

namespace zorbel::io::common::file {

namespace {

using foundation::core::except::raise;
namespace errors = ZORBEL::io::common::file;

std::mutex system_mutex;

std::shared_ptr<FileSystem>& system_in_place()
{
    static std::shared_ptr<FileSystem> system;
    return system;
}

std::filesystem::path native(const fl::ustring& path)
{
    try {
        const std::string bytes = fl::i18n::ustring_to_utf8(path);
        return std::u8string(bytes.begin(), bytes.end());
    } catch (const ZORBEL::fl::i18n::InvalidText&) {
        raise<errors::FileError>(path, "its name is not valid UTF-16");
    }
}

Stream& opened(const File& file)
{
    if (!file.stream()) {
        raise<errors::FileError>(file.path(), "no file is open");
    }
    return *file.stream();
}

[[noreturn]] void raise_unknown(const File& file, Operation operation, const std::string& reason)
{
    const char* const what = operation == Operation::read ? "reading failed: " : "writing failed: ";
    raise<errors::FileError>(file.path(), what + reason);
}

} // namespace

Stream::~Stream() = default;
FileSystem::~FileSystem() = default;

std::shared_ptr<Folder> FileSystem::open_folder(const std::filesystem::path& path)
{
    return open_posix_folder(path);
}

File::File(fl::ustring path, std::shared_ptr<Stream> stream)
    : path_(std::make_shared<const fl::ustring>(std::move(path))), stream_(std::move(stream))
{
}

const fl::ustring& File::path() const
{
    static const fl::ustring none;
    return path_ ? *path_ : none;
}

std::shared_ptr<FileSystem> exchange_file_system(std::shared_ptr<FileSystem> system)
{
    auto earlier = file_system();
    const std::lock_guard lock(system_mutex);
    system_in_place() = std::move(system);
    return earlier;
}

std::shared_ptr<FileSystem> file_system()
{
    const std::lock_guard lock(system_mutex);
    auto& system = system_in_place();
    if (!system) {
        system = make_posix_file_system();
    }
    return system;
}

void raise_file_error(const std::filesystem::path& path, std::error_code reason)
{
    const fl::ustring shown = display_path(path);
    const auto is = [&reason](std::errc condition) { return reason == condition; };
    constexpr int over_quota = EDQUOT; // has no name in std::errc
    if (is(std::errc::permission_denied) || is(std::errc::operation_not_permitted) ||
        is(std::errc::read_only_file_system)) {
        raise<errors::PermissionDenied>(shown);
    }
    if (is(std::errc::no_such_file_or_directory) || is(std::errc::not_a_directory)) {
        raise<errors::NoSuchFile>(shown);
    }
    if (is(std::errc::no_space_on_device) || reason.value() == over_quota) {
        raise<errors::DiskFull>(shown);
    }
    raise<errors::FileError>(shown, reason.message());
}

fl::ustring display_path(const std::filesystem::path& path)
{
    const std::string bytes = path.string();
    try {
        return fl::i18n::utf8_to_ustring(bytes);
    } catch (const ZORBEL::fl::i18n::InvalidText&) {
        return fl::i18n::utf8_to_ustring(foundation::text::escape(bytes));
    }
}

File make_readable_file(const fl::ustring& path)
{
    return {path, file_system()->open(native(path), OpenMode::read)};
}

File make_writeable_file(const fl::ustring& path)
{
    return {path, file_system()->open(native(path), OpenMode::write)};
}

foundation::storage::vfs::File make_vfs_file(const fl::ustring& path)
{
    using foundation::storage::vfs::FileAttributes;
    return foundation::storage::vfs::File(
        [system = file_system(), name = native(path)] { return FileAttributes(system->size(name)); });
}

// The contract passes a File by value: a call keeps the file open, whatever its owner does meanwhile.
// NOLINTBEGIN(performance-unnecessary-value-param)
Count read(File file, char* buffer, long count) noexcept
{
    try {
        Stream& stream = opened(file);
        if (count <= 0) {
            return 0L;
        }
        const long got = stream.read(buffer, count);
        return got == 0 ? -1L : got;
    } catch (...) {
        return std::current_exception();
    }
}

Count write(File file, const char* data, long count) noexcept
{
    try {
        return opened(file).write(data, count);
    } catch (...) {
        return std::current_exception();
    }
}

std::exception_ptr close(File file) noexcept
{
    try {
        if (file.stream()) {
            file.stream()->close();
        }
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

void handle_exception(std::exception_ptr failure, File file, Operation operation)
{
    if (!failure) {
        return;
    }
    try {
        std::rethrow_exception(std::move(failure));
    } catch (const errors::PermissionDenied&) {
        throw;
    } catch (const errors::NoSuchFile&) {
        throw;
    } catch (const errors::DiskFull&) {
        throw;
    } catch (const errors::FileError&) {
        throw;
    } catch (const std::exception& error) {
        raise_unknown(file, operation, error.what());
    } catch (...) {
        raise_unknown(file, operation, "an unknown error");
    }
}
// NOLINTEND(performance-unnecessary-value-param)

} // namespace zorbel::io::common::file

#pragma once

#include <zorbel/io/common/file.hpp>
#include <zorbel/io/common/file/Folder.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

namespace zorbel::io::common::file {

/// The bytes behind a `File`. Every member throws the errors of `errors.hpp`.
class ZORBELHOST_EXPORT Stream {
public:
    virtual ~Stream();

    /// The number of bytes read, 0 at the end of the file.
    virtual long read(char* buffer, long count) = 0;
    virtual long write(const char* data, long count) = 0;
    virtual void close() = 0;
};

/// What a file is opened for. A file to be read must be there and be no folder.
enum class OpenMode {
    read,
    write, ///< made when missing, emptied when there
};

/// Where local files live. The functions of `file.hpp` go to the one in place. Paths may be any bytes that the
/// system takes.
class ZORBELHOST_EXPORT FileSystem {
public:
    virtual ~FileSystem();

    virtual std::shared_ptr<Stream> open(const std::filesystem::path& path, OpenMode mode) = 0;
    virtual std::uint64_t size(const std::filesystem::path& path) = 0;

    /// A folder to reach local files through. Unless overridden, one of the machine.
    virtual std::shared_ptr<Folder> open_folder(const std::filesystem::path& path);
};

/// Puts `system` in place for the process and returns the one that was there; null stands for the POSIX file
/// system of the start. Files that are open keep theirs.
ZORBELHOST_EXPORT std::shared_ptr<FileSystem> exchange_file_system(std::shared_ptr<FileSystem> system);

/// The one in place.
ZORBELHOST_EXPORT std::shared_ptr<FileSystem> file_system();

/// Throws the error of `errors.hpp` that `reason` stands for.
[[noreturn]] ZORBELHOST_EXPORT void raise_file_error(const std::filesystem::path& path, std::error_code reason);

/// `path` as the errors show it: bytes that are not valid UTF-8 are escaped.
ZORBELHOST_EXPORT fl::ustring display_path(const std::filesystem::path& path);

} // namespace zorbel::io::common::file

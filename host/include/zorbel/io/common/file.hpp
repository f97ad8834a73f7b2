#pragma once

#include <fl/ustring.hpp>
#include <foundation/storage/vfs/File.hpp>
#include <zorbelhost_export.hpp>

#include <exception>
#include <memory>
#include <variant>

namespace zorbel::io::common::file {

class Stream;

/// An open local file: a value with shared ownership. Copies refer to the same open file; the last one to go
/// closes it if nobody did. Default-constructed it refers to nothing. One thread at a time.
class ZORBELHOST_EXPORT File {
public:
    File() = default;
    File(fl::ustring path, std::shared_ptr<Stream> stream);

    /// The path that it was opened by; empty when it refers to nothing.
    const fl::ustring& path() const;
    const std::shared_ptr<Stream>& stream() const { return stream_; }

private:
    // Shared like the stream: a copy costs no allocation, so that callbacks can make one for every chunk.
    std::shared_ptr<const fl::ustring> path_;
    std::shared_ptr<Stream> stream_;
};

/// What was being done to a file when it failed.
enum class Operation { write = 0, read = 1 };

/// A count of bytes, or the failure that was caught instead.
using Count = std::variant<long, std::exception_ptr>;

/// Opens `path` for reading. Throws `PermissionDenied`, `NoSuchFile` or `FileError`; a folder is a `FileError`.
ZORBELHOST_EXPORT File make_readable_file(const fl::ustring& path);

/// Opens `path` for writing: made when missing, emptied when there. Throws `PermissionDenied`, `NoSuchFile`
/// (its folder is missing), `DiskFull` or `FileError`.
ZORBELHOST_EXPORT File make_writeable_file(const fl::ustring& path);

/// The storage's view of `path`; nothing is asked of the storage yet.
ZORBELHOST_EXPORT foundation::storage::vfs::File make_vfs_file(const fl::ustring& path);

/// Reads up to `count` bytes into `buffer`: the number read, -1 at the end of the file, or the failure.
ZORBELHOST_EXPORT Count read(File file, char* buffer, long count) noexcept;

/// Writes `count` bytes: the number written, or the failure.
ZORBELHOST_EXPORT Count write(File file, const char* data, long count) noexcept;

/// Closes the file for all its copies and gives the failure, or an empty pointer. Closing a closed file is
/// none.
ZORBELHOST_EXPORT std::exception_ptr close(File file) noexcept;

/// Does nothing for an empty `failure`. Otherwise throws it: as it is when it is an error of this layer, else
/// as a `FileError` that names the file and the operation.
ZORBELHOST_EXPORT void handle_exception(std::exception_ptr failure, File file, Operation operation);

} // namespace zorbel::io::common::file

#pragma once

#include <zorbel/io/common/file.hpp>

#include <cstdint>
#include <memory>

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

/// Where local files live. The functions of `file.hpp` go to the one in place.
class ZORBELHOST_EXPORT FileSystem {
public:
    virtual ~FileSystem();

    virtual std::shared_ptr<Stream> open_for_reading(const fl::ustring& path) = 0;
    virtual std::shared_ptr<Stream> open_for_writing(const fl::ustring& path) = 0;
    virtual std::uint64_t size(const fl::ustring& path) = 0;
};

/// Puts `system` in place for the process and returns the one that was there; null stands for the POSIX file
/// system of the start. Files that are open keep theirs.
ZORBELHOST_EXPORT std::shared_ptr<FileSystem> exchange_file_system(std::shared_ptr<FileSystem> system);

} // namespace zorbel::io::common::file

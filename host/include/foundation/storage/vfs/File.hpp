#pragma once

#include <zorbelhost_export.hpp>

#include <cstdint>
#include <functional>
#include <utility>

namespace foundation::storage::vfs {

/// What a stored file is like.
class FileAttributes {
public:
    explicit FileAttributes(std::uint64_t size) : size_(size) {}
    /// The size in bytes.
    std::uint64_t getSize() const { return size_; }

private:
    std::uint64_t size_;
};

/// A stored file seen from outside: what it is like, not what it holds.
class File {
public:
    explicit File(std::function<FileAttributes()> query) : query_(std::move(query)) {}

    /// Asks the storage each time. Throws the file errors of `zorbel/io/common/file/errors.hpp`.
    FileAttributes getAttributes() const { return query_(); }

private:
    std::function<FileAttributes()> query_;
};

} // namespace foundation::storage::vfs

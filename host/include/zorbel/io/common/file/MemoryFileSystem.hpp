#pragma once

#include <zorbel/io/common/file/FileSystem.hpp>

#include <map>
#include <mutex>
#include <string>

namespace zorbel::io::common::file {

/// Files that live in memory and go with the object, for tests and for programs that have no disk. Any path is
/// a name; there are no folders. Safe to use from several threads, a single file by one at a time.
class ZORBELHOST_EXPORT MemoryFileSystem final : public FileSystem {
public:
    std::shared_ptr<Stream> open(const std::filesystem::path& path, OpenMode mode) override;
    std::uint64_t size(const std::filesystem::path& path) override;

    /// Makes or replaces the file at `path`.
    void put(const std::filesystem::path& path, std::string content);

    /// What the file at `path` holds. Throws `NoSuchFile`.
    std::string get(const std::filesystem::path& path) const;

private:
    std::shared_ptr<std::string> find(const std::filesystem::path& path) const;

    mutable std::mutex mutex_;
    std::map<std::filesystem::path, std::shared_ptr<std::string>> files_;
};

} // namespace zorbel::io::common::file

#pragma once

#include <zorbel/io/common/file/FileSystem.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

/// Local files through the file system that is in place; each throws its errors.
namespace qrftp {

/// Writes all of `bytes`; a file that takes less is full.
void write_all(zorbel::io::common::file::Stream& file, const std::filesystem::path& path,
               std::string_view bytes);

/// Seconds since 1970; none for a file that is not there.
std::int64_t modification_time(const std::filesystem::path& path);
void set_modification_time(const std::filesystem::path& path, std::int64_t seconds);

/// Throws what `reason` means for the folder `path`: something else may have its name.
[[noreturn]] void raise_folder_error(const std::filesystem::path& path, std::error_code reason);

/// A local file that a fetch writes. Unless told to write to the target itself, it collects what arrives under
/// a temporary name beside it and gives it the target's name in the end; if that never comes, it is removed
/// with the object.
class local_target {
public:
    /// `offset` bytes of the target are kept, in place.
    local_target(std::filesystem::path target, bool in_place, std::uint64_t offset);
    local_target(const local_target&) = delete;
    local_target& operator=(const local_target&) = delete;
    ~local_target();

    void write(std::string_view bytes);
    /// Whether what is written can be forgotten, whatever the target is.
    bool is_temporary() const { return path_ != target_; }
    std::uint64_t written() const { return written_; }
    /// Forgets what was written.
    void restart();
    /// Closes the file; it then has the target's name and, where given, the time.
    void commit(std::optional<std::int64_t> time);

private:
    void open();

    std::filesystem::path target_;
    std::filesystem::path path_;
    std::uint64_t offset_;
    std::uint64_t written_ = 0;
    std::shared_ptr<zorbel::io::common::file::Stream> stream_;
};

} // namespace qrftp

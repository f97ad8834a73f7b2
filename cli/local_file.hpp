#pragma once

#include <filesystem>

namespace qrftp::cli {

/// A local file in the making: written under a temporary name beside `target` and moved into place by `commit`,
/// so that a download that fails leaves no part of a file under its final name. A target that is there and is
/// no regular file (a device, a pipe) is written to directly. Removes the temporary unless committed.
class local_file {
public:
    explicit local_file(std::filesystem::path target);
    ~local_file();
    local_file(const local_file&) = delete;
    local_file& operator=(const local_file&) = delete;

    /// Where to write.
    const std::filesystem::path& path() const { return temporary_; }

    /// Throws `std::filesystem::filesystem_error`.
    void commit();

private:
    std::filesystem::path target_;
    std::filesystem::path temporary_;
};

} // namespace qrftp::cli

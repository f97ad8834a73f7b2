#pragma once

#include "../unique_fd.hpp"

#include <cstddef>
#include <filesystem>
#include <span>
#include <stop_token>

namespace qrftp {

/// A local file that is read once, from its beginning to its end: a pipe, a terminal, a device.
class local_stream {
public:
    /// Whether there is such a file at `path`.
    static bool is_at(const std::filesystem::path& path);

    /// Does not wait for a pipe's writer. Throws `LocalFileError`.
    local_stream(std::filesystem::path path, std::stop_token stop);

    /// Waits for bytes; returns how many came, 0 at the end. Throws `LocalFileError`, `Cancelled`.
    std::size_t read(std::span<char> buffer);

private:
    void wait() const;

    std::filesystem::path path_;
    std::stop_token stop_;
    unique_fd descriptor_;
};

} // namespace qrftp

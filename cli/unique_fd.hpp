#pragma once

#include <unistd.h>

namespace qrftp::cli {

/// Owns a file descriptor; a negative one stands for none.
class unique_fd {
public:
    explicit unique_fd(int fd) noexcept : fd_(fd) {}
    unique_fd(const unique_fd&) = delete;
    unique_fd& operator=(const unique_fd&) = delete;
    ~unique_fd()
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }

    [[nodiscard]] int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }

private:
    int fd_;
};

} // namespace qrftp::cli

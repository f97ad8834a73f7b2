#pragma once

#include "../unique_fd.hpp"

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace qrftp::sftp {

/// A program whose standard input and output carry a connection. It is ended with the object.
class proxy_process {
public:
    /// Starts `arguments`, the first of which is looked for on the PATH. Returns the process and this side's
    /// end of its input and output, which does not block. Throws `std::system_error`.
    static std::pair<proxy_process, unique_fd> start(const std::vector<std::string>& arguments);

    proxy_process() = default;
    proxy_process(proxy_process&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
    proxy_process& operator=(proxy_process&& other) noexcept
    {
        std::swap(pid_, other.pid_);
        return *this;
    }
    ~proxy_process();

private:
    explicit proxy_process(pid_t pid) : pid_(pid) {}

    pid_t pid_ = 0;
};

/// The arguments that run `command` as ssh(1) runs a ProxyCommand: by the user's shell, which it replaces.
std::vector<std::string> shell_arguments(const std::string& command);

} // namespace qrftp::sftp

#pragma once

#include "interruptible_wait.hpp"

#include <cstdint>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace qrftp::sftp {

/// The address of a socket, of any family.
class socket_address {
public:
    socket_address(const sockaddr* address, socklen_t size);

    [[nodiscard]] int family() const { return storage_.ss_family; }
    [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage_); }
    [[nodiscard]] socklen_t size() const { return size_; }

private:
    sockaddr_storage storage_{};
    socklen_t size_;
};

/// The addresses of `host`, in the system's order, at least one. A name is looked up on a thread of its own, so
/// that the wait can be cancelled. Throws `NoConnection`, `Timeout`, `Cancelled`.
std::vector<socket_address> resolve(const std::string& host, std::uint16_t port, interruptible_wait& wait);

} // namespace qrftp::sftp

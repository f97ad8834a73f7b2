#include "host_addresses.hpp"

#include <qrftp/error.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>

namespace qrftp::sftp {

namespace {

struct lookup {
    std::vector<socket_address> addresses{};
    int error = 0; ///< of getaddrinfo
};

lookup look_up(const std::string& host, std::uint16_t port, int flags)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | flags;
    addrinfo* found = nullptr;
    lookup result;
    result.error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (result.error != 0) {
        return result;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
    for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
        result.addresses.emplace_back(one->ai_addr, one->ai_addrlen);
    }
    return result;
}

/// What the thread and the one that waits share: the thread may outlive the wait.
struct shared_lookup {
    lookup result{};
    unique_fd done{::eventfd(0, EFD_CLOEXEC)};
};

lookup look_up_on_thread(const std::string& host, std::uint16_t port, interruptible_wait& wait)
{
    const auto shared = std::make_shared<shared_lookup>();
    if (!shared->done) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    std::thread([shared, host, port] {
        try {
            shared->result = look_up(host, port, 0);
        } catch (...) { // There is no memory.
            shared->result.error = EAI_MEMORY;
        }
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(shared->done.get(), &one, sizeof one); // never full
    }).detach();
    wait.wait(shared->done.get(), POLLIN);
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(shared->done.get(), &count, sizeof count);
    return std::move(shared->result);
}

} // namespace

socket_address::socket_address(const sockaddr* address, socklen_t size)
    : size_(std::min<socklen_t>(size, sizeof storage_))
{
    std::memcpy(&storage_, address, size_);
}

std::vector<socket_address> resolve(const std::string& host, std::uint16_t port, interruptible_wait& wait)
{
    lookup found = look_up(host, port, AI_NUMERICHOST);
    if (found.error != 0) {
        found = look_up_on_thread(host, port, wait);
    }
    if (found.error != 0) {
        throw NoConnection(wait.subject(), {0, ::gai_strerror(found.error)});
    }
    return std::move(found.addresses);
}

} // namespace qrftp::sftp

#include <foundation/net/peer_closed.hpp>

#include <sys/socket.h>

#include <cerrno>

namespace foundation::net {

bool peer_closed(std::intptr_t socket) noexcept
{
    char next = 0;
    const ssize_t got = recv(static_cast<int>(socket), &next, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR);
}

} // namespace foundation::net

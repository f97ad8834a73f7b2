#pragma once

#include <zorbelhost_export.hpp>

#include <cstdint>

namespace foundation::net {

/// Whether the other side has closed the connection of `socket`, a descriptor as the operating system counts
/// them, or broken it, and all that it sent before was read. Takes nothing off the socket, never waits.
ZORBELHOST_EXPORT bool peer_closed(std::intptr_t socket) noexcept;

} // namespace foundation::net

#pragma once

#include <cstdint>
#include <optional>

namespace qrftp {

/// The room on the storage that holds a remote folder, in bytes. What the server does not tell is empty.
struct disk_space {
    std::optional<std::uint64_t> total{};
    std::optional<std::uint64_t> free{}; ///< with what only root may use
    std::uint64_t available = 0;         ///< to this user

    bool operator==(const disk_space&) const = default;
};

} // namespace qrftp

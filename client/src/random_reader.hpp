#pragma once

#include <qrftp/file.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qrftp {

/// How much room is made for a part of a file that may be shorter than it is said to be.
constexpr std::uint64_t read_step = std::uint64_t{4} << 20;
/// What is made room for at once, however much a server says that there is.
constexpr std::uint64_t most_at_once = std::uint64_t{64} << 20;

/// How a protocol reads a file at any place.
class random_reader {
public:
    random_reader() = default;
    random_reader(const random_reader&) = delete;
    random_reader& operator=(const random_reader&) = delete;
    virtual ~random_reader() = default;

    [[nodiscard]] virtual std::optional<std::uint64_t> size() const = 0;
    /// Fills the buffer unless the file ends before.
    virtual std::size_t read(std::uint64_t offset, std::span<char> buffer) = 0;
    /// One after the other, unless the protocol knows better.
    virtual std::vector<std::string> read(std::span<const file_range> ranges);

protected:
    /// What is from `offset` on of the file, up to `length` bytes; makes room for it as it comes.
    std::string read_on(std::uint64_t offset, std::uint64_t length);
};

} // namespace qrftp

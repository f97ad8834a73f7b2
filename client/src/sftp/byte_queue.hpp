#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace qrftp::sftp {

/// Bytes that are appended at the end and taken from the front. Its storage grows as needed and is kept.
/// Everything that `bytes` and `prepare` give is valid until the next `prepare` or `append`.
class byte_queue {
public:
    [[nodiscard]] std::string_view bytes() const noexcept { return {data_.get() + begin_, end_ - begin_}; }
    [[nodiscard]] std::size_t size() const noexcept { return end_ - begin_; }
    [[nodiscard]] bool empty() const noexcept { return begin_ == end_; }

    /// Room for at least `size` bytes behind the end: all that there is.
    std::span<char> prepare(std::size_t size);
    /// Appends the first `size` bytes of the room.
    void commit(std::size_t size) noexcept { end_ += size; }
    void append(std::string_view bytes);
    /// Replaces bytes from the position `at`, counted from the front.
    void overwrite(std::size_t at, std::string_view bytes) noexcept;

    /// Takes `size` bytes from the front.
    void consume(std::size_t size) noexcept;
    /// Takes from the end what is beyond the first `size` bytes.
    void truncate(std::size_t size) noexcept { end_ = begin_ + size; }

private:
    std::unique_ptr<char[]> data_{}; // NOLINT(modernize-avoid-c-arrays): a vector would fill it with zeros
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

} // namespace qrftp::sftp

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace qrftp::sftp {

/// How many files may be open at once on the server: more on longer lines, since each waits for its answers. A
/// server that opens no more makes the window smaller; each file that it does open lets it grow again.
class handle_window {
public:
    /// `server_limit` is 0 when it is not known.
    handle_window(std::chrono::nanoseconds round_trip, std::uint64_t server_limit);
    /// The same, once more is known.
    void resize(std::chrono::nanoseconds round_trip, std::uint64_t server_limit);

    [[nodiscard]] bool has_room() const noexcept { return asked_ < size_; }
    /// Whether the server has other files open for us.
    [[nodiscard]] bool has_open() const noexcept { return opened_ > 0; }

    void on_open() noexcept { ++asked_; }
    void on_opened() noexcept;
    void on_refused() noexcept;
    void on_closed(bool was_opened) noexcept;

private:
    std::chrono::nanoseconds round_trip_;
    std::uint64_t server_limit_;
    std::size_t largest_;
    std::size_t size_;
    std::size_t asked_ = 0;  ///< OPEN sent, CLOSE not
    std::size_t opened_ = 0; ///< of these, those with a handle
};

/// How many bytes may be asked for or sent without having been answered, or wait for others before them. It
/// grows with what has been answered.
class byte_window {
public:
    explicit byte_window(std::uint64_t size) : size_(size) {}

    [[nodiscard]] bool has_room() const noexcept { return in_flight_ < size_; }
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
    void on_sent(std::uint64_t bytes) noexcept { in_flight_ += bytes; }
    /// `largest` is what the window may grow to.
    void on_answered(std::uint64_t bytes, std::uint64_t largest) noexcept;
    /// How many have been answered.
    [[nodiscard]] std::uint64_t answered() const noexcept { return answered_; }
    /// No answer will come, or what waited has been given away.
    void forget(std::uint64_t bytes) noexcept { in_flight_ -= bytes; }

private:
    std::uint64_t size_;
    std::uint64_t in_flight_ = 0;
    std::uint64_t answered_ = 0;
};

} // namespace qrftp::sftp

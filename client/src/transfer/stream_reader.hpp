#pragma once

#include "../random_reader.hpp"

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>

namespace qrftp {

/// Reads a file at any place from where it only comes from a place on to its end: a thread fetches ahead into a
/// bounded queue; another place, unless it is a little further on, is another fetch.
class stream_reader final : public random_reader {
public:
    /// Gives the file to `on_data` from `offset` on, and ends when that returns false, or is asked to stop.
    using source = std::function<void(const std::stop_token& asked_to_stop, std::uint64_t offset,
                                      const std::function<bool(std::string_view)>& on_data)>;

    explicit stream_reader(source fetch, std::optional<std::uint64_t> size = {});
    ~stream_reader() override;

    [[nodiscard]] std::optional<std::uint64_t> size() const override { return size_; }
    std::size_t read(std::uint64_t offset, std::span<char> buffer) override;

private:
    void start(std::uint64_t offset);
    void stop();
    void fetch_from(const std::stop_token& asked_to_stop, std::uint64_t offset) noexcept;
    bool take(const std::stop_token& asked_to_stop, std::string_view bytes);
    /// Up to so many bytes, moved into `buffer` or dropped where there is none; 0 at the end.
    std::size_t consume(std::span<char> buffer, std::size_t most);

    source fetch_;
    std::optional<std::uint64_t> size_;
    std::uint64_t position_ = 0; ///< of the next byte in the queue

    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<std::string> queue_;
    std::size_t queued_ = 0;
    std::size_t taken_of_first_ = 0;
    bool ended_ = false;
    std::exception_ptr failure_;
    std::jthread thread_;
};

} // namespace qrftp

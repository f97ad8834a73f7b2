#include "stream_reader.hpp"

#include <algorithm>
#include <utility>

namespace qrftp {

namespace {

/// How much is fetched ahead, and how far a place may lie ahead to be reached by reading on.
constexpr std::size_t read_ahead = std::size_t{4} << 20;

} // namespace

stream_reader::stream_reader(source fetch, std::optional<std::uint64_t> size)
    : fetch_(std::move(fetch)), size_(size)
{
}

stream_reader::~stream_reader()
{
    stop();
}

std::size_t stream_reader::read(std::uint64_t offset, std::span<char> buffer)
{
    if (size_ && offset >= *size_) {
        return 0;
    }
    if (!thread_.joinable() || offset < position_ || offset - position_ > read_ahead) {
        start(offset);
    }
    while (position_ < offset) {
        if (consume({}, offset - position_) == 0) {
            return 0;
        }
    }
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const std::size_t got = consume(buffer.subspan(filled), buffer.size() - filled);
        if (got == 0) {
            break;
        }
        filled += got;
    }
    return filled;
}

void stream_reader::start(std::uint64_t offset)
{
    stop();
    queue_.clear();
    queued_ = 0;
    taken_of_first_ = 0;
    ended_ = false;
    failure_ = nullptr;
    position_ = offset;
    thread_ = std::jthread([this, offset](const std::stop_token& token) { fetch_from(token, offset); });
}

void stream_reader::stop()
{
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
}

void stream_reader::fetch_from(const std::stop_token& asked_to_stop, std::uint64_t offset) noexcept
{
    std::exception_ptr failure;
    try {
        fetch_(asked_to_stop, offset, [&](std::string_view bytes) { return take(asked_to_stop, bytes); });
    } catch (...) {
        failure = std::current_exception();
    }
    const std::lock_guard lock(mutex_);
    ended_ = true;
    failure_ = std::move(failure);
    changed_.notify_all();
}

bool stream_reader::take(const std::stop_token& asked_to_stop, std::string_view bytes)
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, asked_to_stop, [this] { return queued_ < read_ahead; });
    if (asked_to_stop.stop_requested()) {
        return false;
    }
    queue_.emplace_back(bytes);
    queued_ += bytes.size();
    changed_.notify_all();
    return true;
}

std::size_t stream_reader::consume(std::span<char> buffer, std::size_t most)
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !queue_.empty() || ended_; });
    if (queue_.empty()) {
        if (failure_) {
            thread_.join(); // It has ended, and the next read begins anew.
            std::rethrow_exception(failure_);
        }
        return 0;
    }
    const std::string_view first = std::string_view(queue_.front()).substr(taken_of_first_);
    const std::size_t count = std::min(first.size(), most);
    first.copy(buffer.data(), std::min(count, buffer.size()));
    taken_of_first_ += count;
    queued_ -= count;
    position_ += count;
    if (taken_of_first_ == queue_.front().size()) {
        queue_.pop_front();
        taken_of_first_ = 0;
    }
    changed_.notify_all();
    return count;
}

} // namespace qrftp

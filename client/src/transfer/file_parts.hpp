#pragma once

#include "../protocol.hpp"

#include <algorithm>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace qrftp {

/// One file, whole or in parts, each of which another connection may carry. Every connection takes from it by a
/// `view` of its own. The first failure is thrown.
template <class File>
class file_parts {
public:
    /// `count` parts of nearly one size; with one, the size has no meaning.
    file_parts(File& file, std::uint64_t size, unsigned count)
        : file_(file), size_(count == 1 ? byte_range::to_the_end : size), step_((size_ - 1) / count + 1)
    {
    }

    /// That part alone.
    file_parts(File& file, const byte_range& part) : file_(file), size_(0), step_(1), returned_{part} {}

    class view final : public batch<File> {
    public:
        using part = typename batch<File>::part;

        view(file_parts& file, retry_policy retries, bool ends_with_connection = false)
            : batch<File>(std::move(retries)), file_(file), ends_with_connection_(ends_with_connection)
        {
        }

        std::optional<part> next() override
        {
            const auto range = file_.next();
            return range ? std::optional(part{&file_.file_, *range}) : std::nullopt;
        }
        void finished(const part& /*done*/) override {}
        [[nodiscard]] bool ends_with_connection() const override { return ends_with_connection_; }
        void take_back(const part& left) override { file_.take_back(left.range); }
        void failed(const part& /*lost*/, std::exception_ptr why) override
        {
            has_failed_ = true;
            file_.give_up();
            std::rethrow_exception(why);
        }

        /// Whether there is something that this view did not give back.
        [[nodiscard]] bool has_failed() const { return has_failed_; }

    private:
        file_parts& file_;
        bool ends_with_connection_;
        bool has_failed_ = false;
    };

    /// Whether parts were taken back that nobody has carried since.
    [[nodiscard]] bool has_returned() const { return !returned_.empty(); }

private:
    void take_back(const byte_range& range)
    {
        const std::lock_guard lock(mutex_);
        returned_.push_back(range);
    }

    std::optional<byte_range> next()
    {
        const std::lock_guard lock(mutex_);
        if (!returned_.empty()) {
            const byte_range first = returned_.back();
            returned_.pop_back();
            return first;
        }
        if (begin_ >= size_) {
            return std::nullopt;
        }
        const std::uint64_t end = begin_ + std::min(step_, size_ - begin_);
        return byte_range{std::exchange(begin_, end), end};
    }

    void give_up()
    {
        const std::lock_guard lock(mutex_);
        begin_ = size_;
        returned_.clear();
    }

    std::mutex mutex_;
    File& file_;
    std::uint64_t size_;
    std::uint64_t step_;
    std::uint64_t begin_ = 0;
    std::vector<byte_range> returned_{};
};

} // namespace qrftp

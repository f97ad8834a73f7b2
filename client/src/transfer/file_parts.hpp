#pragma once

#include "../protocol.hpp"

#include <algorithm>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

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

    class view final : public batch<File> {
    public:
        using part = typename batch<File>::part;

        view(file_parts& file, retry_policy retries) : batch<File>(std::move(retries)), file_(file) {}

        std::optional<part> next() override
        {
            const auto range = file_.next();
            return range ? std::optional(part{&file_.file_, *range}) : std::nullopt;
        }
        void finished(const part& /*done*/) override {}
        void failed(const part& /*lost*/, std::exception_ptr why) override
        {
            file_.give_up();
            std::rethrow_exception(why);
        }

    private:
        file_parts& file_;
    };

private:
    std::optional<byte_range> next()
    {
        const std::lock_guard lock(mutex_);
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
    }

    std::mutex mutex_;
    File& file_;
    std::uint64_t size_;
    std::uint64_t step_;
    std::uint64_t begin_ = 0;
};

} // namespace qrftp

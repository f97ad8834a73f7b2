#pragma once

#include "../protocol.hpp"

#include <algorithm>
#include <exception>
#include <mutex>
#include <optional>

namespace qrftp {

/// A batch of one large file in parts, each of which another connection may carry. The first failure is thrown.
template <class File>
class parts_batch final : public batch<File> {
public:
    using part = typename batch<File>::part;

    /// `count` parts of nearly one size.
    parts_batch(File& file, std::uint64_t size, unsigned count)
        : file_(file), size_(size), step_((size + count - 1) / count)
    {
    }

    std::optional<part> next() override
    {
        const std::lock_guard lock(mutex_);
        if (begin_ >= size_) {
            return std::nullopt;
        }
        const std::uint64_t end = std::min(begin_ + step_, size_);
        return part{&file_, {std::exchange(begin_, end), end}};
    }
    void finished(const part& /*done*/) override {}
    void failed(const part& /*lost*/, std::exception_ptr why) override
    {
        {
            const std::lock_guard lock(mutex_);
            begin_ = size_;
        }
        std::rethrow_exception(why);
    }

private:
    std::mutex mutex_;
    File& file_;
    std::uint64_t size_;
    std::uint64_t step_;
    std::uint64_t begin_ = 0;
};

} // namespace qrftp

#pragma once

#include "../protocol.hpp"

#include <exception>
#include <optional>

namespace qrftp {

/// A batch of one file, whose failure is thrown.
template <class File>
class single_batch final : public batch<File> {
public:
    using part = typename batch<File>::part;

    explicit single_batch(File& file) : file_(&file) {}

    std::optional<part> next() override
    {
        File* const file = std::exchange(file_, nullptr);
        return file == nullptr ? std::nullopt : std::optional(part{file, {}});
    }
    void finished(const part& /*done*/) override {}
    void failed(const part& /*lost*/, std::exception_ptr why) override { std::rethrow_exception(why); }

private:
    File* file_;
};

} // namespace qrftp

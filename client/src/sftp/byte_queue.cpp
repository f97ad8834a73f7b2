#include "byte_queue.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qrftp::sftp {

std::span<char> byte_queue::prepare(std::size_t size)
{
    const std::size_t used = this->size();
    if (capacity_ - end_ < size) {
        if (capacity_ - used < size) {
            const std::size_t capacity = std::max(2 * capacity_, used + size);
            auto larger = decltype(data_)(new char[capacity]); // make_unique would fill it with zeros
            std::copy_n(data_.get() + begin_, used, larger.get());
            data_ = std::move(larger);
            capacity_ = capacity;
        } else {
            std::memmove(data_.get(), data_.get() + begin_, used);
        }
        begin_ = 0;
        end_ = used;
    }
    return {data_.get() + end_, capacity_ - end_};
}

void byte_queue::append(std::string_view bytes)
{
    std::copy(bytes.begin(), bytes.end(), prepare(bytes.size()).begin());
    commit(bytes.size());
}

void byte_queue::overwrite(std::size_t at, std::string_view bytes) noexcept
{
    std::copy(bytes.begin(), bytes.end(), data_.get() + begin_ + at);
}

void byte_queue::consume(std::size_t size) noexcept
{
    begin_ += size;
    if (begin_ == end_) {
        begin_ = 0;
        end_ = 0;
    }
}

} // namespace qrftp::sftp

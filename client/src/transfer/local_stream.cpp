#include "local_stream.hpp"

#include <qrftp/error.hpp>

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace qrftp {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const fs::path& path)
{
    throw LocalFileError(path.string(), std::error_code(errno, std::generic_category()));
}

} // namespace

bool local_stream::is_at(const fs::path& path)
{
    std::error_code none;
    const fs::file_type type = fs::status(path, none).type();
    return type == fs::file_type::fifo || type == fs::file_type::character;
}

local_stream::local_stream(fs::path path, std::stop_token stop)
    : path_(std::move(path)), stop_(std::move(stop)),
      descriptor_(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY))
{
    if (!descriptor_) {
        fail(path_);
    }
}

std::size_t local_stream::read(std::span<char> buffer)
{
    for (;;) {
        wait();
        const ssize_t got = ::read(descriptor_.get(), buffer.data(), buffer.size());
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno != EAGAIN && errno != EINTR) {
            fail(path_);
        }
    }
}

/// A pipe that nobody has written to yet is not at its end.
void local_stream::wait() const
{
    constexpr int slice = 100; // milliseconds
    pollfd event{descriptor_.get(), POLLIN, 0};
    while (!stop_.stop_requested()) {
        const int ready = ::poll(&event, 1, slice);
        if (ready > 0) {
            return;
        }
        if (ready < 0 && errno != EINTR) {
            fail(path_);
        }
    }
    throw Cancelled(path_.string());
}

} // namespace qrftp

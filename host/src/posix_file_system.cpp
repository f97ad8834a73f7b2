#include "posix_file_system.hpp"

#include "posix_call.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/common/file/errors.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <system_error>
#include <utility>

static_assert(sizeof(off_t) == 8, "files above 2 GiB need a 64-bit off_t");

namespace zorbel::io::common::file {

namespace {

using foundation::core::except::raise;
namespace errors = ZORBEL::io::common::file;
namespace fs = std::filesystem;

[[noreturn]] void raise_error(const fs::path& path, int error)
{
    raise_file_error(path, {error, std::generic_category()});
}

const std::string& native(const fs::path& path)
{
    if (path.native().find('\0') != std::string::npos) {
        raise<errors::FileError>(display_path(path), "its name holds a NUL character");
    }
    return path.native();
}

class PosixStream final : public Stream {
public:
    PosixStream(fs::path path, OpenMode mode) : path_(std::move(path))
    {
        constexpr mode_t as_the_umask_allows = 0666;
        const char* const name = native(path_).c_str();
        const int flags =
            (mode == OpenMode::read ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC) | O_CLOEXEC | O_NOCTTY;
        descriptor_ = repeat_interrupted([&] { return ::open(name, flags, as_the_umask_allows); });
        if (descriptor_ == -1) {
            raise_error(path_, errno);
        }
    }
    PosixStream(const PosixStream&) = delete;
    PosixStream& operator=(const PosixStream&) = delete;
    ~PosixStream() override
    {
        if (descriptor_ != -1) {
            ::close(descriptor_);
        }
    }

    void refuse_folder() const
    {
        struct stat status = {};
        if (::fstat(descriptor_, &status) == -1) {
            raise_error(path_, errno);
        }
        if (S_ISDIR(status.st_mode)) {
            raise_error(path_, EISDIR);
        }
    }

    long read(char* buffer, long count) override
    {
        const auto room = static_cast<std::size_t>(std::max(count, 0L));
        const ssize_t got = repeat_interrupted([&] { return ::read(descriptor_, buffer, room); });
        if (got == -1) {
            raise_error(path_, errno);
        }
        return got;
    }

    long write(const char* data, long count) override
    {
        long written = 0;
        while (written < count) {
            const auto rest = static_cast<std::size_t>(count - written);
            const ssize_t put = repeat_interrupted([&] { return ::write(descriptor_, data + written, rest); });
            if (put == -1) {
                raise_error(path_, errno);
            }
            written += put;
        }
        return written;
    }

    void close() override
    {
        const int descriptor = std::exchange(descriptor_, -1);
        // Linux frees the descriptor even when the call is interrupted; a second call could hit another file.
        if (descriptor != -1 && ::close(descriptor) == -1 && errno != EINTR) {
            raise_error(path_, errno);
        }
    }

private:
    fs::path path_;
    int descriptor_ = -1;
};

class PosixFileSystem final : public FileSystem {
public:
    std::shared_ptr<Stream> open(const fs::path& path, OpenMode mode) override
    {
        auto stream = std::make_shared<PosixStream>(path, mode);
        if (mode == OpenMode::read) {
            stream->refuse_folder();
        }
        return stream;
    }

    std::uint64_t size(const fs::path& path) override
    {
        struct stat status = {};
        if (::stat(native(path).c_str(), &status) == -1) {
            raise_error(path, errno);
        }
        return static_cast<std::uint64_t>(status.st_size);
    }
};

} // namespace

std::shared_ptr<FileSystem> make_posix_file_system()
{
    return std::make_shared<PosixFileSystem>();
}

} // namespace zorbel::io::common::file

#include "posix_file_system.hpp"

#include <fl/i18n/errors.hpp>
#include <fl/i18n/ustring_to_utf8.hpp>
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

[[noreturn]] void raise_error(const fl::ustring& path, int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
        raise<errors::PermissionDenied>(path);
    case ENOENT:
    case ENOTDIR:
        raise<errors::NoSuchFile>(path);
    case ENOSPC:
    case EDQUOT:
        raise<errors::DiskFull>(path);
    default:
        raise<errors::FileError>(path, std::generic_category().message(error));
    }
}

std::string native(const fl::ustring& path)
{
    if (path.find(u'\0') != fl::ustring::npos) {
        raise<errors::FileError>(path, "its name holds a NUL character");
    }
    try {
        return fl::i18n::ustring_to_utf8(path);
    } catch (const ZORBEL::fl::i18n::InvalidText&) {
        raise<errors::FileError>(path, "its name is not valid UTF-16");
    }
}

template <class Call>
auto repeat_interrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

class PosixStream final : public Stream {
public:
    PosixStream(fl::ustring path, int flags) : path_(std::move(path))
    {
        constexpr mode_t as_the_umask_allows = 0666;
        const std::string name = native(path_);
        descriptor_ = repeat_interrupted([&] { return ::open(name.c_str(), flags, as_the_umask_allows); });
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
    fl::ustring path_;
    int descriptor_ = -1;
};

class PosixFileSystem final : public FileSystem {
public:
    std::shared_ptr<Stream> open_for_reading(const fl::ustring& path) override
    {
        auto stream = std::make_shared<PosixStream>(path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
        stream->refuse_folder();
        return stream;
    }

    std::shared_ptr<Stream> open_for_writing(const fl::ustring& path) override
    {
        return std::make_shared<PosixStream>(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY);
    }

    std::uint64_t size(const fl::ustring& path) override
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

#include "posix_local_file.hpp"

#include "posix_call.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

namespace zorbel::io::common::file {

namespace {

namespace fs = std::filesystem;

fs::file_type type_of(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFREG:
        return fs::file_type::regular;
    case S_IFDIR:
        return fs::file_type::directory;
    case S_IFLNK:
        return fs::file_type::symlink;
    case S_IFIFO:
        return fs::file_type::fifo;
    case S_IFSOCK:
        return fs::file_type::socket;
    case S_IFCHR:
        return fs::file_type::character;
    case S_IFBLK:
        return fs::file_type::block;
    default:
        return fs::file_type::unknown;
    }
}

/// While it lives, writing to a pipe that nobody reads is an error, and does not end the program.
class WithoutSigpipe {
public:
    WithoutSigpipe()
    {
        sigset_t pending{};
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    WithoutSigpipe(const WithoutSigpipe&) = delete;
    WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;
    ~WithoutSigpipe()
    {
        const int kept = errno;
        const timespec at_once{};
        while (!was_pending_ && sigtimedwait(&pipe_, nullptr, &at_once) == -1 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = kept;
    }

private:
    sigset_t pipe_{};
    sigset_t before_{};
    bool was_pending_ = false;
};

class PosixLocalFile final : public LocalFile {
public:
    explicit PosixLocalFile(fs::path path) : path_(std::move(path)) {}
    PosixLocalFile(const PosixLocalFile&) = delete;
    PosixLocalFile& operator=(const PosixLocalFile&) = delete;
    ~PosixLocalFile() override
    {
        if (descriptor_ != -1) {
            ::close(descriptor_);
        }
    }

    void open(const std::function<int()>& call)
    {
        descriptor_ = checked(path_, call);
        has_places_ = ::lseek(descriptor_, 0, SEEK_CUR) != -1;
        // Asked for so that opening a pipe does not wait; `write_some` does not either.
        const int flags = ::fcntl(descriptor_, F_GETFL);
        if (has_places_ || (flags & O_ACCMODE) == O_RDONLY) {
            ::fcntl(descriptor_, F_SETFL, flags & ~O_NONBLOCK);
        }
    }

    Status status() const override
    {
        struct stat found = {};
        checked(path_, [&] { return ::fstat(descriptor_, &found); });
        return to_status(found);
    }

    std::size_t read(std::uint64_t position, std::span<char> buffer) override
    {
        return static_cast<std::size_t>(checked(path_, [&] {
            return has_places_
                       ? ::pread(descriptor_, buffer.data(), buffer.size(), static_cast<off_t>(position))
                       : ::read(descriptor_, buffer.data(), buffer.size());
        }));
    }

    void write(std::uint64_t position, std::string_view bytes) override
    {
        while (!bytes.empty()) {
            const std::size_t put = has_places_ ? write_at(position, bytes) : write_some(bytes, no_limit);
            bytes.remove_prefix(put);
            position += put;
        }
    }

    std::size_t write_some(std::string_view bytes, std::chrono::milliseconds longest) override
    {
        const auto write = [&] {
            const WithoutSigpipe guard;
            return repeat_interrupted([&] { return ::write(descriptor_, bytes.data(), bytes.size()); });
        };
        ssize_t put = write();
        if (put == -1 && errno == EAGAIN) {
            pollfd room{descriptor_, POLLOUT, 0};
            ::poll(&room, 1, static_cast<int>(longest.count()));
            put = write();
        }
        return put == -1 && errno == EAGAIN ? 0 : static_cast<std::size_t>(checked(path_, [&] { return put; }));
    }

    void truncate(std::uint64_t size) override
    {
        checked(path_, [&] { return ::ftruncate(descriptor_, static_cast<off_t>(size)); });
    }

    void set_mode(fs::perms mode) override
    {
        checked(path_, [&] { return ::fchmod(descriptor_, static_cast<mode_t>(mode)); });
    }

    void set_modification_time(std::chrono::sys_seconds time) override
    {
        std::array<timespec, 2> times{};
        times[0].tv_nsec = UTIME_OMIT;
        times[1].tv_sec = time.time_since_epoch().count();
        checked(path_, [&] { return ::futimens(descriptor_, times.data()); });
    }

    void sync() override
    {
        checked(path_, [&] { return ::fsync(descriptor_); });
    }

    bool lock() override
    {
        const int result = repeat_interrupted([&] { return ::flock(descriptor_, LOCK_EX | LOCK_NB); });
        return result == 0 || errno != EWOULDBLOCK; // What cannot be locked at all is nobody's.
    }

    void close() override
    {
        const int descriptor = std::exchange(descriptor_, -1);
        // Linux frees the descriptor even when the call is interrupted; a second call could hit another file.
        if (descriptor != -1 && ::close(descriptor) == -1 && errno != EINTR) {
            throw fs::filesystem_error("local file", path_, {errno, std::generic_category()});
        }
    }

private:
    static constexpr std::chrono::milliseconds no_limit{-1};

    std::size_t write_at(std::uint64_t position, std::string_view bytes)
    {
        return static_cast<std::size_t>(checked(path_, [&] {
            return ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(position));
        }));
    }

    fs::path path_;
    int descriptor_ = -1;
    bool has_places_ = true;
};

} // namespace

std::unique_ptr<LocalFile> open_posix_file(fs::path path, const std::function<int()>& open)
{
    auto file = std::make_unique<PosixLocalFile>(std::move(path));
    file->open(open);
    return file;
}

Status to_status(const struct stat& from)
{
    constexpr unsigned permission_bits = 07777;
    return {.type = type_of(from.st_mode),
            .size = static_cast<std::uint64_t>(from.st_size),
            .modified = std::chrono::sys_seconds(std::chrono::seconds(from.st_mtim.tv_sec)),
            .mode = static_cast<fs::perms>(from.st_mode & permission_bits),
            .device = static_cast<std::uint64_t>(from.st_dev),
            .inode = static_cast<std::uint64_t>(from.st_ino),
            .owner = from.st_uid,
            .names = static_cast<std::uint64_t>(from.st_nlink)};
}

} // namespace zorbel::io::common::file

#include "posix_folder.hpp"

#include "posix_call.hpp"
#include "posix_local_file.hpp"

#include <zorbel/io/common/file/FileSystem.hpp>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <utility>

namespace zorbel::io::common::file {

LocalFile::~LocalFile() = default;
Folder::~Folder() = default;

namespace {

namespace fs = std::filesystem;

int no_follow(Folder::Links links)
{
    return links == Folder::Links::refuse ? O_NOFOLLOW : 0;
}

int flags_of(Folder::Open how)
{
    switch (how) {
    case Folder::Open::read:
        return O_RDONLY;
    case Folder::Open::create:
        return O_WRONLY | O_CREAT | O_EXCL;
    case Folder::Open::append:
        return O_WRONLY | O_CREAT | O_APPEND;
    case Folder::Open::update:
        break;
    }
    return O_WRONLY | O_CREAT;
}

class PosixFolder final : public Folder {
public:
    PosixFolder(int descriptor, fs::path path) : path_(std::move(path)), descriptor_(descriptor) {}
    PosixFolder(const PosixFolder&) = delete;
    PosixFolder& operator=(const PosixFolder&) = delete;
    ~PosixFolder() override { ::close(descriptor_); }

    std::vector<std::string> names() const override
    {
        const int own =
            checked(path_, [&] { return ::openat(descriptor_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
        const std::unique_ptr<DIR, int (*)(DIR*)> reader(::fdopendir(own), &::closedir);
        if (reader == nullptr) {
            ::close(own);
            fail(path_);
        }
        std::vector<std::string> result;
        for (;;) {
            errno = 0;
            const dirent* const found = ::readdir(reader.get()); // NOLINT(concurrency-mt-unsafe): own stream
            if (found == nullptr) {
                break;
            }
            const std::string_view name(static_cast<const char*>(found->d_name));
            if (name != "." && name != "..") {
                result.emplace_back(name);
            }
        }
        if (errno != 0) {
            fail(path_);
        }
        return result;
    }

    std::optional<Status> status(const std::string& name, Links links) const override
    {
        struct stat found = {};
        const int flags = links == Links::refuse ? AT_SYMLINK_NOFOLLOW : 0;
        if (::fstatat(descriptor_, segment(name), &found, flags) == -1) {
            if (errno == ENOENT) {
                return std::nullopt;
            }
            fail(path_ / name);
        }
        return to_status(found);
    }

    std::shared_ptr<Folder> open_folder(const std::string& name, Links links) const override
    {
        const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | no_follow(links);
        const int opened = checked(path_ / name, [&] { return ::openat(descriptor_, segment(name), flags); });
        return std::make_shared<PosixFolder>(opened, path_ / name);
    }

    std::unique_ptr<LocalFile> open_file(const std::string& name, Open how, Links links) const override
    {
        constexpr mode_t private_mode = 0600;
        constexpr mode_t as_the_umask_allows = 0666;
        // A pipe that nobody reads is an error, not a wait without end.
        const int flags = flags_of(how) | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | no_follow(links);
        const mode_t mode = how == Open::create ? private_mode : as_the_umask_allows;
        return open_posix_file(path_ / name, [&] { return ::openat(descriptor_, segment(name), flags, mode); });
    }

    void make_folder(const std::string& name) override
    {
        constexpr mode_t as_the_umask_allows = 0777;
        checked(path_ / name, [&] { return ::mkdirat(descriptor_, segment(name), as_the_umask_allows); });
    }

    void remove_file(const std::string& name) override
    {
        // No name is made up before it is needed: what was left behind goes even when there is no memory.
        if (::unlinkat(descriptor_, segment(name), 0) == -1) {
            fail(path_ / name);
        }
    }

    void remove_folder(const std::string& name) override
    {
        checked(path_ / name, [&] { return ::unlinkat(descriptor_, segment(name), AT_REMOVEDIR); });
    }

    void make_link(const std::string& name, const std::string& target) override
    {
        checked(path_ / name, [&] { return ::symlinkat(target.c_str(), descriptor_, segment(name)); });
    }

    std::string link_target(const std::string& name) const override
    {
        std::string target(PATH_MAX, '\0');
        const auto length = checked(path_ / name, [&] {
            return ::readlinkat(descriptor_, segment(name), target.data(), target.size());
        });
        target.resize(static_cast<std::size_t>(length));
        return target;
    }

    void rename(const std::string& from, const std::string& to, bool replace) override
    {
        const unsigned flags = replace ? 0U : RENAME_NOREPLACE;
        const int result = repeat_interrupted(
            [&] { return ::renameat2(descriptor_, segment(from), descriptor_, segment(to), flags); });
        if (result == -1 && !replace && (errno == EINVAL || errno == ENOSYS)) {
            // A file system that cannot do that can make a second name, which never replaces.
            checked(path_ / to,
                    [&] { return ::linkat(descriptor_, segment(from), descriptor_, segment(to), 0); });
            remove_file(from);
        } else if (result == -1) {
            fail(path_ / to);
        }
    }

    void sync() override
    {
        checked(path_, [&] { return ::fsync(descriptor_); });
    }

private:
    [[noreturn]] static void fail(const fs::path& path)
    {
        throw fs::filesystem_error("local file", path, {errno, std::generic_category()});
    }

    /// Nothing but a single name leads below the folder.
    const char* segment(const std::string& name) const
    {
        constexpr std::string_view forbidden("/\0", 2);
        if (name.empty() || name == "." || name == ".." || name.find_first_of(forbidden) != std::string::npos) {
            throw fs::filesystem_error("local file", path_ / name,
                                       std::make_error_code(std::errc::invalid_argument));
        }
        return name.c_str();
    }

    fs::path path_;
    int descriptor_;
};

} // namespace

std::shared_ptr<Folder> open_posix_folder(const fs::path& path)
{
    const int opened = checked(path, [&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    return std::make_shared<PosixFolder>(opened, path);
}

std::shared_ptr<Folder> open_folder(const fs::path& path)
{
    return file_system()->open_folder(path);
}

fs::perms default_file_mode()
{
    constexpr unsigned everybody = 0666;
    unsigned mask = 022;
    std::ifstream status("/proc/self/status"); // the one way to ask that changes nothing for other threads
    for (std::string word; status >> word;) {
        if (word == "Umask:") {
            status >> std::oct >> mask;
            break;
        }
    }
    return static_cast<fs::perms>(everybody & ~mask);
}

} // namespace zorbel::io::common::file

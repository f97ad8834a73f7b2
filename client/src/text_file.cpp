#include "text_file.hpp"

#include "unique_fd.hpp"

#include <qrftp/error.hpp>

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace qrftp {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t longest_file = std::size_t{16} * 1024 * 1024;

[[noreturn]] void throw_errno(const fs::path& file, const std::string& reason = {})
{
    throw LocalFileError(file.string(), std::error_code(errno, std::generic_category()), reason);
}

unique_fd open_file(const fs::path& file, int flags, mode_t mode = 0)
{
    if (file.native().find('\0') != std::string::npos) {
        errno = EINVAL;
        throw_errno(file);
    }
    unique_fd opened(
        ::open(file.c_str(), flags | O_CLOEXEC, mode)); // NOLINT(cppcoreguidelines-pro-type-vararg)
    if (!opened) {
        throw_errno(file);
    }
    return opened;
}

void check_writers(const fs::path& file, const unique_fd& opened)
{
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0) {
        throw_errno(file);
    }
    if ((status.st_uid != 0 && status.st_uid != ::getuid()) || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        errno = EPERM;
        throw_errno(file, "others can write to it; take their permission away: chmod go-w");
    }
}

void make_folder_of(const fs::path& file)
{
    const fs::path folder = file.parent_path();
    std::error_code error;
    if (folder.empty() || fs::is_directory(folder, error)) {
        return;
    }
    error.clear();
    if (fs::create_directories(folder, error)) {
        fs::permissions(folder, fs::perms::owner_all, error);
    }
    if (error) {
        throw LocalFileError(folder.string(), error);
    }
}

bool ends_with_line_end(const unique_fd& opened)
{
    const off_t size = ::lseek(opened.get(), 0, SEEK_END);
    char last = '\n';
    return size <= 0 || ::pread(opened.get(), &last, 1, size - 1) != 1 || last == '\n';
}

} // namespace

std::string read_text_file(const fs::path& file, file_writers writers)
{
    const unique_fd opened = open_file(file, O_RDONLY);
    if (writers == file_writers::this_user_or_root) {
        check_writers(file, opened);
    }
    std::string text;
    for (;;) {
        constexpr std::size_t step = 65536;
        const std::size_t size = text.size();
        text.resize(size + step);
        const ssize_t got = ::read(opened.get(), text.data() + size, step);
        text.resize(size + static_cast<std::size_t>(got > 0 ? got : 0));
        if (got < 0 && errno != EINTR) {
            throw_errno(file);
        }
        if (got == 0) {
            return text;
        }
        if (text.size() > longest_file) {
            errno = EFBIG;
            throw_errno(file);
        }
    }
}

void append_line(const fs::path& file, std::string_view line)
{
    make_folder_of(file);
    const unique_fd opened = open_file(file, O_RDWR | O_APPEND | O_CREAT, S_IRUSR | S_IWUSR);
    std::string text = ends_with_line_end(opened) ? std::string() : "\n";
    text.append(line) += '\n';
    const ssize_t written = ::write(opened.get(), text.data(), text.size());
    if (written != static_cast<ssize_t>(text.size())) {
        errno = written < 0 ? errno : ENOSPC;
        throw_errno(file);
    }
}

} // namespace qrftp

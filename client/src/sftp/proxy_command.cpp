#include "proxy_command.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system's unistd.h has it

namespace qrftp::sftp {

namespace {

constexpr int grace_ms = 1000;

[[noreturn]] void throw_error(int error, const char* what)
{
    throw std::system_error(error, std::generic_category(), what);
}

class file_actions {
public:
    file_actions() { posix_spawn_file_actions_init(&actions_); }
    file_actions(const file_actions&) = delete;
    file_actions& operator=(const file_actions&) = delete;
    ~file_actions() { posix_spawn_file_actions_destroy(&actions_); }

    void duplicate(int from, int to)
    {
        if (const int error = posix_spawn_file_actions_adddup2(&actions_, from, to)) {
            throw_error(error, "posix_spawn");
        }
    }
    [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

bool has_ended(pid_t pid, int longest_ms)
{
    // glibc 2.36 declares pidfd_open for C only.
    const unique_fd process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    pollfd polled{process.get(), POLLIN, 0};
    return process && ::poll(&polled, 1, longest_ms) > 0;
}

} // namespace

std::pair<proxy_process, unique_fd> proxy_process::start(const std::vector<std::string>& arguments)
{
    std::array<int, 2> ends{-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw_error(errno, "socketpair");
    }
    unique_fd ours(ends[0]);
    const unique_fd theirs(ends[1]);
    if (::fcntl(ours.get(), F_SETFL, O_NONBLOCK) != 0) { // NOLINT(cppcoreguidelines-pro-type-vararg)
        throw_error(errno, "fcntl");
    }
    file_actions actions;
    actions.duplicate(theirs.get(), STDIN_FILENO);
    actions.duplicate(theirs.get(), STDOUT_FILENO);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (const int error = ::posix_spawnp(&pid, argv.front(), actions.get(), nullptr, argv.data(), environ)) {
        throw_error(error, argv.front());
    }
    return {proxy_process(pid), std::move(ours)};
}

proxy_process::~proxy_process()
{
    if (pid_ <= 0) {
        return;
    }
    ::kill(pid_, SIGTERM);
    if (!has_ended(pid_, grace_ms)) {
        ::kill(pid_, SIGKILL);
    }
    // A program that reaps every child has done this already.
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::vector<std::string> shell_arguments(const std::string& command)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read only
    const char* const shell = std::getenv("SHELL");
    return {shell != nullptr && *shell != '\0' ? shell : "/bin/sh", "-c", "exec " + command};
}

} // namespace qrftp::sftp

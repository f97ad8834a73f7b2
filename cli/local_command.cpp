#include "local_command.hpp"

#include "environment.hpp"
#include "interrupt.hpp"
#include "unique_fd.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

/// Ignores the signals of the keys that interrupt and quit, which are for the command in the foreground.
class ignore_tty_signals {
public:
    ignore_tty_signals()
    {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        (void)sigaction(SIGINT, &ignore, &interrupt_);
        (void)sigaction(SIGQUIT, &ignore, &quit_);
    }
    ~ignore_tty_signals()
    {
        (void)sigaction(SIGINT, &interrupt_, nullptr);
        (void)sigaction(SIGQUIT, &quit_, nullptr);
    }
    ignore_tty_signals(const ignore_tty_signals&) = delete;
    ignore_tty_signals& operator=(const ignore_tty_signals&) = delete;

private:
    struct sigaction interrupt_ {};
    struct sigaction quit_ {};
};

std::vector<char*> pointers(std::vector<std::string>& words)
{
    std::vector<char*> found;
    found.reserve(words.size() + 1);
    for (std::string& one : words) {
        found.push_back(one.data());
    }
    found.push_back(nullptr);
    return found;
}

/// With standard output `output`.
pid_t start(std::vector<std::string> words, int output = STDOUT_FILENO)
{
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE}) {
        sigaddset(&defaults, signal);
    }
    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_t files{};
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1); // The connections are this process's.
    pid_t child = 0;
    const int failure =
        posix_spawnp(&child, words.front().c_str(), &files, &attributes, pointers(words).data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (failure != 0) {
        throw std::runtime_error(fmt::format("\"{}\" cannot be run: {}.", escape(words.front()),
                                             std::generic_category().message(failure)));
    }
    return child;
}

int wait_for(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error(
                fmt::format("The command was lost: {}.", std::generic_category().message(errno)));
        }
    }
    return status;
}

/// The status that `waitpid` tells of the program.
int run(const std::vector<std::string>& words)
{
    const ignore_tty_signals scope;
    return wait_for(start(words));
}

} // namespace

void run_program(const std::vector<std::string>& words)
{
    const int status = run(words);
    if (WIFSIGNALED(status)) {
        throw std::runtime_error(
            fmt::format("\"{}\" was ended by signal {}.", words.front(), WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) != 0) {
        throw std::runtime_error(
            fmt::format("\"{}\" ended with status {}.", words.front(), WEXITSTATUS(status)));
    }
}

std::pair<std::string, int> read_output(const std::string& line)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const unique_fd output{ends[0]};
    const pid_t child = [&] {
        const unique_fd input{ends[1]};
        return start({"/bin/sh", "-c", line}, input.get());
    }();
    std::string text;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 1; count > 0; text.append(buffer.data(), static_cast<std::size_t>(count))) {
        if (!wait_readable(output.get())) {
            (void)kill(child, SIGTERM);
            (void)wait_for(child);
            throw Cancelled(line);
        }
        count = std::max<ssize_t>(read(output.get(), buffer.data(), buffer.size()), 0);
    }
    return {text, wait_for(child)};
}

void run_local(const std::string& line)
{
    const std::string own = environment("SHELL").value_or("");
    const std::string shell = own.empty() ? "/bin/sh" : own;
    if (line.empty()) {
        (void)run({shell}); // It ends with the status of its last command, which has been seen.
        return;
    }
    run_program({shell, "-c", line});
}

} // namespace qrftp::cli

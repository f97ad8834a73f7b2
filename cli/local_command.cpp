#include "local_command.hpp"

#include "environment.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <vector>

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

pid_t start(std::vector<std::string> words)
{
    std::vector<std::string> variables = environment_without_secrets();
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
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1); // The connections are this process's.
    pid_t child = 0;
    const int failure = posix_spawnp(&child, words.front().c_str(), &files, &attributes, pointers(words).data(),
                                     pointers(variables).data());
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (failure != 0) {
        throw std::runtime_error(fmt::format("\"{}\" cannot be run: {}.", escape(words.front()),
                                             std::generic_category().message(failure)));
    }
    return child;
}

/// The status that `waitpid` tells of the program.
int run(const std::vector<std::string>& words)
{
    const ignore_tty_signals scope;
    const pid_t child = start(words);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error(
                fmt::format("The command was lost: {}.", std::generic_category().message(errno)));
        }
    }
    return status;
}

} // namespace

void run_program(const std::vector<std::string>& words)
{
    const int status = run(words);
    if (WIFSIGNALED(status)) {
        throw std::runtime_error(fmt::format("The command was ended by signal {}.", WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) != 0) {
        throw std::runtime_error(fmt::format("The command ended with status {}.", WEXITSTATUS(status)));
    }
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

#include "local_command.hpp"

#include "environment.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <array>
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

pid_t start(const std::string& shell, const std::string& line)
{
    std::array<std::string, 3> words{shell, "-c", line};
    std::array<char*, 4> arguments{words[0].data()};
    if (!line.empty()) {
        arguments[1] = words[1].data();
        arguments[2] = words[2].data();
    }
    std::vector<std::string> variables = environment_without_secrets();
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (std::string& one : variables) {
        environment.push_back(one.data());
    }
    environment.push_back(nullptr);
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
    const int failure =
        posix_spawn(&child, shell.c_str(), &files, &attributes, arguments.data(), environment.data());
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (failure != 0) {
        throw std::runtime_error(fmt::format("The shell \"{}\" cannot be run: {}.", escape(shell),
                                             std::generic_category().message(failure)));
    }
    return child;
}

} // namespace

void run_local(const std::string& line)
{
    const std::string own = environment("SHELL").value_or("");
    const ignore_tty_signals scope;
    const pid_t child = start(own.empty() ? "/bin/sh" : own, line);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error(
                fmt::format("The command was lost: {}.", std::generic_category().message(errno)));
        }
    }
    if (line.empty()) {
        return; // An interactive shell ends with the status of its last command, which has been seen.
    }
    if (WIFSIGNALED(status)) {
        throw std::runtime_error(fmt::format("The command was ended by signal {}.", WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) != 0) {
        throw std::runtime_error(fmt::format("The command ended with status {}.", WEXITSTATUS(status)));
    }
}

} // namespace qrftp::cli

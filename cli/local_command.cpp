#include "local_command.hpp"

#include "output.hpp"
#include "password.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

/// The keys that interrupt and quit are for the command that is in the foreground, not for this process.
class deaf_to_keys {
public:
    deaf_to_keys()
    {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        (void)sigaction(SIGINT, &ignore, &interrupt_);
        (void)sigaction(SIGQUIT, &ignore, &quit_);
    }
    ~deaf_to_keys()
    {
        (void)sigaction(SIGINT, &interrupt_, nullptr);
        (void)sigaction(SIGQUIT, &quit_, nullptr);
    }
    deaf_to_keys(const deaf_to_keys&) = delete;
    deaf_to_keys& operator=(const deaf_to_keys&) = delete;

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
    sigset_t heard;
    sigemptyset(&heard);
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE}) {
        sigaddset(&heard, signal);
    }
    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &heard);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_t files{};
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1); // The connections are not its own.
    pid_t child = 0;
    const int failure = posix_spawn(&child, shell.c_str(), &files, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (failure != 0) {
        throw std::runtime_error("The shell \"" + printable(shell) +
                                 "\" cannot be run: " + std::generic_category().message(failure) + ".");
    }
    return child;
}

} // namespace

void run_local(const std::string& line)
{
    const std::string own = environment("SHELL").value_or("");
    const deaf_to_keys scope;
    const pid_t child = start(own.empty() ? "/bin/sh" : own, line);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error("The command was lost: " + std::generic_category().message(errno) + ".");
        }
    }
    if (line.empty()) {
        return; // An interactive shell ends with the status of its last command, which has been seen.
    }
    if (WIFSIGNALED(status)) {
        throw std::runtime_error("The command was ended by signal " + std::to_string(WTERMSIG(status)) + ".");
    }
    if (WEXITSTATUS(status) != 0) {
        throw std::runtime_error("The command ended with status " + std::to_string(WEXITSTATUS(status)) + ".");
    }
}

} // namespace qrftp::cli

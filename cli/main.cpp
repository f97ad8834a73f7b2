#include "command_completion.hpp"
#include "environment.hpp"
#include "exit_status.hpp"
#include "help.hpp"
#include "interrupt.hpp"
#include "login.hpp"
#include "parse.hpp"
#include "profile_options.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <span>

#include <fcntl.h>
#include <unistd.h>

using namespace qrftp::cli;

namespace {

/// Keeps what is opened later out of the places of the standard streams that are closed. Their use still fails.
void occupy_closed_streams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            (void)open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY); // The lowest one is free.
        }
    }
}

int run_subcommand(const std::vector<std::string>& arguments)
{
    CLI::App app("Lists, fetches, sends and changes files over FTP, FTPS and SFTP.", "qrftp");
    app.require_subcommand(1);
    app.set_version_flag("--version", version_text(), "Show the versions");
    set_up_help(app);
    command_line line;
    add_subcommands(app, line);
    app.footer(help_footer());
    if (is_completion(arguments)) {
        return complete(app, line, arguments);
    }
    if (!parse(app, arguments)) {
        return success;
    }
    const profile_list profiles = read_profiles();
    check_profiles(app, profiles);
    use_profiles(app, line, profiles);
    return line.run();
}

/// Where a signal has ended the work, ends by that signal: whoever started the command looks for it.
int end(int status)
{
    if (const int signal = interrupting_signal(); signal != 0 && status == 128 + signal) {
        (void)std::fflush(nullptr);
        (void)std::signal(signal, SIG_DFL);
        (void)std::raise(signal);
    }
    return status;
}

} // namespace

int main(int argc, char** argv) // NOLINT(bugprone-exception-escape): what reporting throws ends the process
try {
    occupy_closed_streams();
    take_secrets();
    (void)std::setlocale(LC_CTYPE, ""); // NOLINT(concurrency-mt-unsafe): one thread
    install_interrupt_handlers();
    const std::span<char*> words(argv, static_cast<std::size_t>(argc));
    std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
    hide_passwords(words);
    join_proxy_url(arguments);
    report_as_json(std::ranges::find(arguments, "--json") != arguments.end()); // Also where the rest is wrong.
    return end(run_subcommand(arguments));
} catch (const std::exception& error) {
    report(error);
    return end(status_of(error));
}

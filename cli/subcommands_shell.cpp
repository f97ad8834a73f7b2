#include "exit_status.hpp"
#include "shell.hpp"
#include "shell_state.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"
#include "unique_fd.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

/// Opens a file for reading, or throws `LocalFileError`.
unique_fd open_file(const std::string& name)
{
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    return fd < 0 ? throw LocalFileError(name, std::error_code(errno, std::generic_category())) : unique_fd(fd);
}

int run_shell(command_line& line)
{
    resolve_settings(line);
    const bool has_file = !line.batch.empty() && line.batch != "-";
    const unique_fd file = open_file(has_file ? line.batch : "/dev/null");
    shell_state state(line);
    if (!line.words.empty()) {
        state.open(line.words.front(), line.login);
    }
    if (line.batch.empty()) {
        return shell(state);
    }
    return run_batch(state, has_file ? file.get() : STDIN_FILENO);
}

} // namespace

void add_shell_subcommand(CLI::App& app, command_line& line)
{
    CLI::App& talk =
        add_subcommand(app, line, "shell", "Log in once and type commands", [&] { return run_shell(line); });
    add_operands(talk, line, "[URL]", "Server, and folder to begin in; else \"open URL\" logs in", 0, 1);
    talk.add_option("--batch", line.batch,
                    "Run the commands in FILE up to the first that fails; -: standard input")
        ->type_name("FILE");
}

} // namespace qrftp::cli

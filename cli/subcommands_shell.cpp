#include "exit_status.hpp"
#include "shell.hpp"
#include "shell_state.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

/// A file that is open for reading while this lives.
class open_file {
public:
    explicit open_file(const std::string& name) : descriptor_(::open(name.c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (descriptor_ < 0) {
            throw LocalFileError(name, std::error_code(errno, std::generic_category()));
        }
    }
    ~open_file() { close(descriptor_); }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

int run_shell(command_line& line)
{
    resolve_settings(line);
    const bool has_file = !line.batch.empty() && line.batch != "-";
    const open_file file(has_file ? line.batch : "/dev/null");
    shell_state state(line);
    if (!line.words.empty()) {
        state.open(line.words.front(), line.login);
    }
    if (line.batch.empty()) {
        return shell(state);
    }
    return run_batch(state, has_file ? file.descriptor() : STDIN_FILENO);
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

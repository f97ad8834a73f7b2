#include "shell.hpp"

#include "exit_status.hpp"
#include "interrupt.hpp"
#include "line_editor.hpp"
#include "output.hpp"
#include "shell_line.hpp"
#include "shell_state.hpp"
#include "table.hpp"
#include "terminal.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <csignal>
#include <cstdio>

#include <unistd.h>

namespace qrftp::cli {

namespace {

std::string prompt(const shell_state& state)
{
    const std::string place = escape(state.place());
    return place.empty() ? "qrftp> " : shorten(place, terminal_size::of(STDOUT_FILENO).columns / 2) + "> ";
}

int interrupted_status()
{
    return 128 + interrupting_signal();
}

} // namespace

int converse(shell_state& state)
{
    line_editor editor(state);
    while (!state.has_ended) {
        const std::optional<std::string> line = editor.read(prompt(state));
        if (!line) {
            return interrupted() ? interrupted_status() : success;
        }
        try {
            run_line(state, *line, [](const std::exception& error) { report(error); });
        } catch (const std::exception& error) {
            report(error);
        }
        std::clearerr(stdout); // An output that failed has been reported.
        if (interrupted() && interrupting_signal() != SIGINT) {
            return interrupted_status();
        }
        state.forget_interrupt();
    }
    return success;
}

int run_batch(shell_state& state, int descriptor)
{
    for (std::size_t number = 1; !state.has_ended; ++number) {
        const std::optional<std::string> line = read_line(descriptor);
        if (!line) {
            break;
        }
        const auto report_line = [number](const std::exception& error) { report(error, number); };
        try {
            run_line(state, *line, report_line);
        } catch (const std::exception& error) {
            report_line(error);
            return status_of(error);
        }
    }
    return interrupted() ? interrupted_status() : success;
}

int shell(shell_state& state)
{
    const bool is_terminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    return is_terminal ? converse(state) : run_batch(state, STDIN_FILENO);
}

} // namespace qrftp::cli

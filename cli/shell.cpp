#include "columns.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "interrupt.hpp"
#include "line_editor.hpp"
#include "output.hpp"
#include "run_batch.hpp"
#include "shell_commands.hpp"

#include <iostream>

#include <unistd.h>

namespace qrftp::cli {

namespace {

std::string prompt(const shell_state& state)
{
    const std::string place = printable(state.remote.location().host + ':' + state.remote.working_folder());
    return shorten(place, terminal_size::of(STDOUT_FILENO).columns / 2) + "> ";
}

int converse(shell_state& state)
{
    line_editor editor(state);
    while (!state.ended) {
        const auto line = editor.read(prompt(state));
        if (!line) {
            return interrupted() ? 128 + interrupting_signal() : success;
        }
        reset_interrupt();
        try {
            run_line(state, *line);
        } catch (const std::exception& error) {
            report(error);
        }
        std::cout.clear(); // An output that failed has been reported.
    }
    return success;
}

} // namespace

int shell(session& remote, const settings& how)
{
    shell_state state{remote, how, {}, {}, {}};
    if (isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0) {
        return converse(state);
    }
    int status = success;
    for (std::string line; !state.ended && !interrupted() && std::cout && std::getline(std::cin, line);) {
        try {
            run_line(state, line);
        } catch (const std::exception& error) {
            status = status_of(error);
            report(error);
        }
    }
    return interrupted() ? 128 + interrupting_signal() : status;
}

int run_batch(session& remote, std::istream& input, const settings& how)
{
    shell_state state{remote, how, {}, {}, {}};
    std::string line;
    for (std::size_t number = 1; !state.ended && !interrupted() && std::getline(input, line); ++number) {
        try {
            run_line(state, line);
        } catch (const std::exception& error) {
            std::cout.flush();
            std::cerr << "qrftp: Line " << number << ": " << sentence_of(error) << '\n';
            return status_of(error);
        }
    }
    return interrupted() ? 128 + interrupting_signal() : success;
}

} // namespace qrftp::cli

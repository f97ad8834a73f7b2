#include "shell_line.hpp"

#include "exit_status.hpp"
#include "interrupt.hpp"
#include "local_command.hpp"
#include "output.hpp"
#include "parse.hpp"
#include "profile_options.hpp"
#include "shell_state.hpp"
#include "subcommand.hpp"
#include "tokenize.hpp"

#include <qrftp/glob.hpp>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <vector>

namespace qrftp::cli {

namespace {

/// All commands of the line, before the first is run: what cannot be read fails before anything is done.
std::vector<token_list> split(const std::string& line)
{
    std::vector<token_list> found;
    for (std::size_t start = 0; start != std::string::npos; start = found.back().next) {
        found.push_back(tokenize(line, start));
        if (found.back().end == line_end::in_quotes) {
            throw usage_error("A quote is not closed.");
        }
        if (found.back().end == line_end::in_backslash) {
            throw usage_error("Nothing follows the last backslash.");
        }
    }
    return found;
}

/// Of a command that is not among them, nobody knows whether it changes what completion has listed.
bool only_reads(std::string_view name)
{
    static constexpr std::array<std::string_view, 13> names{"cat", "cd",  "df",   "dir",  "du",   "find", "get",
                                                            "ls",  "lls", "mget", "ping", "stat", "tree"};
    return std::ranges::find(names, name) != names.end();
}

void run_command(shell_state& state, const std::vector<token>& tokens)
{
    std::vector<std::string> words;
    std::ranges::transform(tokens, std::back_inserter(words), &token::pattern);
    words.front() = tokens.front().text;
    state.reset_line();
    if (!parse(*state.commands, words)) {
        return;
    }
    if (!only_reads(words.front())) {
        state.names.forget();
    }
    state.line.patterns = state.line.words;
    std::ranges::transform(state.line.words, state.line.words.begin(), glob_unescape);
    use_profiles(*state.commands, state.line, read_profiles());
    resolve_settings(state.line);
    const auto run = state.line.run; // A command may parse another one.
    const int status = run();
    flush_output();
    if (status != success) {
        throw some_failed("The command failed.");
    }
}

void run_one(shell_state& state, const std::string& line, const token_list& command)
{
    if (command.local != std::string::npos) {
        flush_output();
        run_local(line.substr(command.local));
    } else if (!command.tokens.empty()) {
        run_command(state, command.tokens);
    }
}

} // namespace

void run_line(shell_state& state, const std::string& line,
              const std::function<void(const std::exception&)>& on_ignored)
{
    for (const token_list& command : split(line)) {
        try {
            run_one(state, line, command);
        } catch (const std::exception& error) {
            if (!command.ignores_failure || interrupted()) {
                throw;
            }
            on_ignored(error);
        }
        if (state.has_ended) {
            return;
        }
    }
}

} // namespace qrftp::cli

#include "shell_commands.hpp"

#include "commands.hpp"
#include "environment.hpp"
#include "exit_status.hpp"
#include "format.hpp"
#include "local_command.hpp"
#include "output.hpp"
#include "parse.hpp"
#include "profile_options.hpp"
#include "shell_state.hpp"
#include "subcommand.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace qrftp::cli {

namespace {

/// The only operand of the command that runs; empty where there is none.
std::string operand(const shell_state& state)
{
    return state.line.words.empty() ? "" : state.line.words.front();
}

void run_cd(shell_state& state)
{
    session& remote = state.remote();
    std::string target = remote_name(state.line, state.line.words.empty() ? "~" : operand(state));
    if (operand(state) == "-") {
        if (state.last_folder.empty()) {
            throw std::runtime_error("There is no folder to go back to.");
        }
        target = state.last_folder;
    }
    std::string left = remote.working_folder();
    remote.change_folder(target);
    state.last_folder = std::move(left);
}

void run_lcd(shell_state& state)
{
    std::filesystem::path target = local_name(state.line, state.line.words.empty() ? "~" : operand(state));
    if (operand(state) == "-") {
        if (state.last_local_folder.empty()) {
            throw std::runtime_error("There is no folder to go back to.");
        }
        target = state.last_local_folder;
    }
    std::filesystem::path left = std::filesystem::current_path();
    std::error_code error;
    std::filesystem::current_path(target, error);
    if (error) {
        throw error == std::errc::no_such_file_or_directory ? LocalFileError::missing_folder(target.string())
                                                            : LocalFileError(target.string(), error);
    }
    state.last_local_folder = std::move(left);
}

void run_lpwd(shell_state& state)
{
    print_folder(std::filesystem::current_path().string(), state.line.options);
}

/// "ls" of this machine, which knows the options that CLI11 does not.
void run_lls(shell_state& state)
{
    std::vector<std::string> words = state.commands->get_subcommand("lls")->remaining();
    words.insert(words.begin(), "ls");
    for (const std::string& word : state.line.patterns) {
        if (word.starts_with('-')) { // "-1" is a number to CLI11.
            words.push_back(word);
        } else {
            std::ranges::move(expand_local({word}), std::back_inserter(words));
        }
    }
    flush_output();
    run_program(words);
}

void run_help(shell_state& state)
{
    if (!state.line.words.empty()) {
        const std::string name = operand(state);
        (void)parse(*state.commands, {name, "--help"});
        return;
    }
    auto all = state.commands->get_subcommands({});
    std::ranges::sort(all, {}, [](const CLI::App* one) { return one->get_name(); });
    const auto show = [](const std::string& usage, const std::string& help) {
        print_line(fmt::format("{:<25} {}", usage, help));
    };
    for (const CLI::App* const command : all) {
        show(command->get_name() + ' ' + operands_of(*command), command->get_description());
    }
    show("![COMMAND]", "Run a local command, or a local shell");
    show("-COMMAND", "Continue where the command fails");
    show("COMMAND; COMMAND", "Several commands, up to the first that fails");
}

void run_open(shell_state& state)
{
    state.open(operand(state), state.line.login);
    state.defaults.profile = state.line.profile;
    const profile_list list = read_profiles();
    const profile* const opened = list.find(state.line.profile);
    std::erase_if(state.defaults.set_in_shell, [opened](const std::string& key) {
        return opened != nullptr && opened->find(key) != nullptr;
    });
}

/// Sets what later transfers begin with; `option` is the transfers' own, without its dashes.
void set_for_transfers(shell_state& state, const std::string& option)
{
    const std::string value = operand(state);
    (void)parse(*state.commands, {"get", "--" + option, value, "."});
    state.defaults.transfer = state.line.transfer;
    state.defaults.set_in_shell.insert(option);
}

/// What a transfer would begin with.
const sync_options& read_for_transfers(shell_state& state)
{
    (void)parse(*state.commands, {"get", "."});
    use_profiles(*state.commands, state.line, read_profiles());
    return state.line.transfer;
}

void run_jobs(shell_state& state)
{
    if (!state.line.words.empty()) {
        set_for_transfers(state, "jobs");
        return;
    }
    const unsigned jobs = read_for_transfers(state).jobs;
    print_line(jobs == 0 ? "as many as help" : fmt::to_string(jobs));
}

void run_limit_rate(shell_state& state)
{
    if (!state.line.words.empty()) {
        set_for_transfers(state, "limit-rate");
        return;
    }
    const std::uint64_t rate = read_for_transfers(state).transfer.rate_limit;
    print_line(rate == 0 ? "no limit" : human_size(static_cast<double>(rate)) + "/s");
}

struct shell_command {
    const char* name;
    const char* operands;
    const char* help;
    void (*run)(shell_state& state);
};

constexpr std::array shell_commands{
    shell_command{"cd", "[FOLDER]", "Change the remote folder; ~, or nothing: the login folder; -: back",
                  run_cd},
    shell_command{"close", "", "End the session; the shell stays", [](shell_state& state) { state.close(); }},
    shell_command{"exit", "", "End the shell (bye, quit)", [](shell_state& state) { state.has_ended = true; }},
    shell_command{"help", "[COMMAND]", "Show the commands (?), or the options of one", run_help},
    shell_command{"jobs", "[N]", "Set how many connections later transfers use; 0: as many as help", run_jobs},
    shell_command{"lcd", "[LOCAL-FOLDER]", "Change the local folder; ~, or nothing: home; -: back", run_lcd},
    shell_command{"limit-rate", "[N[k|M|G|T]]",
                  "Set how many bytes per second later transfers move; 0: no limit", run_limit_rate},
    shell_command{"lls", "[LOCAL...]", "List local folders, with the options of ls(1)", run_lls},
    shell_command{"lpwd", "", "Print the local folder", run_lpwd},
    shell_command{"open", "URL", "Log in on a server, in place of the one that is open", run_open},
};

void add_shell_command(CLI::App& app, shell_state& state, const shell_command& own)
{
    CLI::App& command = *app.add_subcommand(own.name, own.help);
    command.set_help_flag("-h,--help", "Show this help");
    command.callback([&state, run = own.run] {
        state.line.run = [&state, run] {
            run(state);
            return success;
        };
    });
    add_operands(command, state.line, own.operands, "", 0, any_number);
    set_shell_operands(command, state.line, own.operands);
}

} // namespace

void add_shell_commands(CLI::App& app, shell_state& state)
{
    for (const shell_command& own : shell_commands) {
        add_shell_command(app, state, own);
    }
    app.get_subcommand("exit")->alias("bye")->alias("quit");
    app.get_subcommand("help")->alias("?");
    app.get_subcommand("lls")->allow_extras()->set_help_flag("--help", "Show this help");
    add_login_options(*app.get_subcommand("open"), state.line.login);
}

} // namespace qrftp::cli

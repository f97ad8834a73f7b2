#include "shell_commands.hpp"

#include "commands.hpp"
#include "environment.hpp"
#include "interrupt.hpp"
#include "local_command.hpp"
#include "output.hpp"

#include <qrftp/glob.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include <glob.h>

namespace qrftp::cli {

namespace {

void run_cd(shell_state& state, const shell_arguments& words)
{
    std::string target = words.operands.empty() ? state.remote.server_info().login_folder : words.text(0);
    if (target == "-") {
        if (state.last_folder.empty()) {
            throw std::runtime_error("There is no folder to go back to.");
        }
        target = state.last_folder;
    }
    std::string left = state.remote.working_folder();
    state.remote.change_folder(target);
    state.last_folder = std::move(left);
}

void run_lcd(shell_state& state, const shell_arguments& words)
{
    std::filesystem::path target = expand_home(words.operands.empty() ? "~" : words.text(0));
    if (target == "-") {
        if (state.last_local_folder.empty()) {
            throw std::runtime_error("There is no folder to go back to.");
        }
        target = state.last_local_folder;
    }
    std::filesystem::path left = std::filesystem::current_path();
    std::filesystem::current_path(target);
    state.last_local_folder = std::move(left);
}

void run_ls(shell_state& state, const shell_arguments& words)
{
    ls(state.remote, {words.patterns(), words.has('l'), words.has('R')}, state.options);
}

void run_dir(shell_state& state, const shell_arguments& words)
{
    ls(state.remote, {words.patterns(), true, words.has('R')}, state.options);
}

void run_transfer(shell_state& state, const shell_arguments& words, std::vector<std::string> sources,
                  std::string target, decltype(&get) transfer)
{
    transfer_arguments what;
    what.sources = std::move(sources);
    what.target = std::move(target);
    what.recursive = words.has('r');
    transfer(state.remote, what, state.options);
}

/// The local names that `pattern` stands for; without wildcards, the name itself.
std::vector<std::string> expand_local(const token& pattern)
{
    if (!has_magic(pattern.pattern)) {
        return {pattern.text};
    }
    glob_t matches{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread
    const bool found = ::glob(pattern.pattern.c_str(), 0, nullptr, &matches) == 0;
    std::vector<std::string> names;
    if (found) {
        names.assign(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
    }
    globfree(&matches);
    if (names.empty()) {
        throw std::runtime_error(fmt::format("No local file matches \"{}\".", escape(pattern.text)));
    }
    return names;
}

std::vector<std::string> expand_local(const std::vector<token>& patterns)
{
    std::vector<std::string> found;
    for (const token& pattern : patterns) {
        std::ranges::move(expand_local(pattern), std::back_inserter(found));
    }
    return found;
}

/// A local command, whose operands are words of this line: "ls" of the user's own shell.
void run_lls(shell_state& /*state*/, const shell_arguments& words)
{
    std::string line = "ls -- ";
    if (!words.options.empty()) {
        line = fmt::format("ls -{} -- ", words.options);
    }
    for (const std::string& name : expand_local(words.operands)) {
        line += quote(name) + ' ';
    }
    flush_output();
    run_local(line);
}

std::string usage_of(const shell_command& command)
{
    return fmt::format("{}{}{}", command.name, command.usage.empty() ? "" : " ", command.usage);
}

void print_help(const std::string& usage, std::string_view help)
{
    print_line(fmt::format("{:<25} {}", usage, help));
}

void print_help(const shell_command& command)
{
    print_help(usage_of(command), command.help);
}

void run_help(shell_state& /*state*/, const shell_arguments& words)
{
    if (!words.operands.empty()) {
        const shell_command* const command = find_command(words.text(0));
        if (command == nullptr) {
            throw usage_error(fmt::format("There is no command \"{}\".", escape(words.text(0))));
        }
        print_help(*command);
        return;
    }
    for (const shell_command& command : shell_commands()) {
        print_help(command);
    }
    print_help("![COMMAND]", "Run a local command, or a local shell");
    print_help("-COMMAND", "In a batch: continue where the command fails");
}

void run_exit(shell_state& state, const shell_arguments& /*words*/)
{
    state.has_ended = true;
}

constexpr std::size_t any = shell_command::any;
using enum shell_effect;

constexpr std::array commands{
    shell_command{"?", "[COMMAND]", "Show this help", "", "c", 0, 1, none, run_help},
    shell_command{"bye", "", "End the shell", "", "", 0, 0, none, run_exit},
    shell_command{
        "cat", "FILE...", "Print remote files", "", "r", 1, any, reads,
        [](shell_state& in, const shell_arguments& words) { cat(in.remote, words.patterns(), in.options); }},
    shell_command{"cd", "[FOLDER | -]", "Change the remote folder; by default to the login folder; -: back", "",
                  "R", 0, 1, reads, run_cd},
    shell_command{"dir", "[-R] [PATH...]", "List remote folders, with details", "R", "r", 0, any, reads,
                  run_dir},
    shell_command{"du", "[-s] [PATH...]", "Print the sizes of remote folders; -s: only the totals", "s", "r", 0,
                  any, reads,
                  [](shell_state& in, const shell_arguments& words) {
                      du(in.remote, words.patterns(), words.has('s'), in.options);
                  }},
    shell_command{"exit", "", "End the shell", "", "", 0, 0, none, run_exit},
    shell_command{"get", "[-r] REMOTE [LOCAL]", "Fetch a file; -r: a folder", "r", "rl", 1, 2, reads,
                  [](shell_state& in, const shell_arguments& words) {
                      run_transfer(in, words, {words.patterns().front()}, words.text(1), get);
                  }},
    shell_command{"help", "[COMMAND]", "Show this help", "", "c", 0, 1, none, run_help},
    shell_command{"lcd", "[FOLDER | -]", "Change the local folder; by default to the home folder; -: back", "",
                  "L", 0, 1, none, run_lcd},
    shell_command{"lls", "[-alRt] [PATH...]", "List local folders", "alRth1S", "l", 0, any, none, run_lls},
    shell_command{"lpwd", "", "Print the local folder", "", "", 0, 0, none,
                  [](shell_state& in, const shell_arguments&) {
                      print_folder(std::filesystem::current_path().string(), in.options);
                  }},
    shell_command{"ls", "[-lR] [PATH...]", "List remote folders; -l: details, -R: with those below", "lR", "r",
                  0, any, reads, run_ls},
    shell_command{"mget", "[-r] GLOB...", "Fetch what matches into the local folder; -r: folders too", "r", "r",
                  1, any, reads,
                  [](shell_state& in, const shell_arguments& words) {
                      run_transfer(in, words, words.patterns(), "", get);
                  }},
    shell_command{"mkdir", "[-p] FOLDER...", "Make folders; -p: those above them too", "p", "R", 1, any,
                  changes,
                  [](shell_state& in, const shell_arguments& words) {
                      mkdir(in.remote, words.texts(), words.has('p'), in.options);
                  }},
    shell_command{"mput", "[-r] GLOB...", "Send what matches into the remote folder; -r: folders too", "r", "l",
                  1, any, changes,
                  [](shell_state& in, const shell_arguments& words) {
                      run_transfer(in, words, expand_local(words.operands), "", put);
                  }},
    shell_command{"mv", "[-f] FROM TO", "Rename or move; -f: replace a file of the new name", "f", "r", 2, 2,
                  changes,
                  [](shell_state& in, const shell_arguments& words) {
                      mv(in.remote, words.text(0), words.text(1), words.has('f'), in.options);
                  }},
    shell_command{"put", "[-r] LOCAL [REMOTE]", "Send a file; -r: a folder", "r", "lr", 1, 2, changes,
                  [](shell_state& in, const shell_arguments& words) {
                      run_transfer(in, words, {words.text(0)}, words.text(1), put);
                  }},
    shell_command{"pwd", "", "Print the remote folder", "", "", 0, 0, none,
                  [](shell_state& in, const shell_arguments&) { pwd(in.remote, in.options); }},
    shell_command{"quit", "", "End the shell", "", "", 0, 0, none, run_exit},
    shell_command{"rm", "[-r] PATH...", "Remove files; -r: folders with all that is in them", "r", "r", 1, any,
                  changes,
                  [](shell_state& in, const shell_arguments& words) {
                      rm(in.remote, words.patterns(), words.has('r'), in.options);
                  }},
    shell_command{
        "rmdir", "FOLDER...", "Remove empty folders", "", "R", 1, any, changes,
        [](shell_state& in, const shell_arguments& words) { rmdir(in.remote, words.texts(), in.options); }},
    shell_command{
        "stat", "PATH...", "Print what is known of remote files", "", "r", 1, any, reads,
        [](shell_state& in, const shell_arguments& words) { stat(in.remote, words.patterns(), in.options); }},
    shell_command{
        "tree", "[FOLDER]", "Print a remote folder as a tree", "", "R", 0, 1, reads,
        [](shell_state& in, const shell_arguments& words) { tree(in.remote, {words.text(0)}, in.options); }},
};

/// The words after the name of the command; nothing where they ask for help.
std::optional<shell_arguments> parse(const shell_command& command, std::vector<token> words)
{
    const auto refuse = [&command](const std::string& why) {
        throw usage_error(fmt::format("{} Usage: {}", why, usage_of(command)));
    };
    shell_arguments found;
    bool may_be_option = true;
    for (auto word = words.begin() + 1; word != words.end(); ++word) {
        const bool is_option = may_be_option && word->text.size() > 1 && word->text.front() == '-';
        if (is_option && (word->text == "--help" || word->text == "-h")) {
            return std::nullopt;
        }
        if (is_option && word->text == "--") {
            may_be_option = false;
        } else if (is_option) {
            found.options += word->text.substr(1);
        } else {
            found.operands.push_back(std::move(*word));
        }
    }
    const auto unknown = found.options.find_first_not_of(command.options);
    if (unknown != std::string::npos) {
        refuse(fmt::format("{} has no option \"-{}\".", command.name, escape(found.options.substr(unknown))));
    }
    if (found.operands.size() < command.least) {
        refuse("Something is missing.");
    }
    if (found.operands.size() > command.most) {
        refuse("There are too many words.");
    }
    return found;
}

std::vector<token> split(const std::string& line)
{
    token_list found = tokenize(line);
    if (found.end == line_end::in_quotes) {
        throw usage_error("A quote is not closed.");
    }
    if (found.end == line_end::in_backslash) {
        throw usage_error("Nothing follows the last backslash.");
    }
    return std::move(found.tokens);
}

} // namespace

void shell_state::forget_interrupt()
{
    if (interrupted()) {
        is_cancelled = true;
        reset_interrupt();
    }
}

void shell_state::renew_session()
{
    if (is_cancelled) {
        session fresh = connect();
        fresh.change_folder(remote.working_folder());
        remote = std::move(fresh);
        is_cancelled = false;
    }
}

std::vector<std::string> shell_arguments::texts() const
{
    std::vector<std::string> found;
    std::ranges::transform(operands, std::back_inserter(found), &token::text);
    return found;
}

std::vector<std::string> shell_arguments::patterns() const
{
    std::vector<std::string> found;
    std::ranges::transform(operands, std::back_inserter(found), &token::pattern);
    return found;
}

std::span<const shell_command> shell_commands()
{
    return commands;
}

const shell_command* find_command(std::string_view name)
{
    const auto* const found = std::find_if(commands.begin(), commands.end(),
                                           [name](const shell_command& one) { return one.name == name; });
    return found == commands.end() ? nullptr : found;
}

void run_line(shell_state& state, const std::string& line)
{
    const auto start = line.find_first_not_of(word_blanks);
    if (start != std::string::npos && line[start] == '!') {
        flush_output();
        run_local(line.substr(start + 1));
        return;
    }
    std::vector<token> words = split(line);
    if (words.empty()) {
        return;
    }
    const std::string name = words.front().text;
    const shell_command* const command = find_command(name);
    if (command == nullptr) {
        throw usage_error(fmt::format(R"(There is no command "{}"; "help" lists them.)", escape(name)));
    }
    const std::optional<shell_arguments> found = parse(*command, std::move(words));
    if (!found) {
        print_help(*command);
        flush_output();
        return;
    }
    if (command->effect != none) {
        state.renew_session();
    }
    if (command->effect == changes) {
        state.names.forget();
    }
    command->run(state, *found);
    flush_output();
}

} // namespace qrftp::cli

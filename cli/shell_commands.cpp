#include "shell_commands.hpp"

#include "commands.hpp"
#include "local_command.hpp"
#include "output.hpp"
#include "password.hpp"
#include "words.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include <glob.h>

namespace qrftp::cli {

namespace {

using arguments = shell_arguments;

std::vector<std::string> or_here(const std::vector<std::string>& paths)
{
    return paths.empty() ? std::vector<std::string>{"."} : paths;
}

void run_cd(shell_state& state, const arguments& given)
{
    std::string target = given.operands.empty() ? state.remote.about().login_folder : given.at(0);
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

void run_lcd(shell_state& state, const arguments& given)
{
    std::filesystem::path target = expand_home(given.operands.empty() ? "~" : given.at(0));
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

void run_transfer(shell_state& state, const arguments& given, std::vector<std::string> sources,
                  const std::string& target, decltype(&get) way)
{
    transfer_arguments what;
    what.sources = std::move(sources);
    what.target = target;
    what.recursive = given.has('r');
    way(state.remote, what, state.how);
}

std::vector<std::string> expand_local(const std::vector<std::string>& patterns)
{
    std::vector<std::string> found;
    for (const std::string& pattern : patterns) {
        glob_t matches{};
        // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread
        if (glob(pattern.c_str(), 0, nullptr, &matches) == 0) {
            found.insert(found.end(), matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
        }
        globfree(&matches);
        if (matches.gl_pathc == 0) {
            throw std::runtime_error("No local file matches \"" + printable(pattern) + "\".");
        }
    }
    return found;
}

void print_folder(const std::string& folder, const settings& how)
{
    json object = json::object();
    add_bytes(object, "path", folder);
    how.json ? print_line(object) : print_line(printable(folder));
}

std::string usage_of(const shell_command& command)
{
    return std::string(command.name) + (command.usage.empty() ? "" : " ") + std::string(command.usage);
}

void print_help(std::string usage, std::string_view help)
{
    usage.resize(std::max<std::size_t>(usage.size() + 1, 26), ' ');
    print_line(usage.append(help));
}

void run_help(shell_state& /*state*/, const arguments& given)
{
    if (!given.operands.empty()) {
        const shell_command* const command = find_command(given.at(0));
        if (command == nullptr) {
            throw usage_error("There is no command \"" + printable(given.at(0)) + "\".");
        }
        print_help(usage_of(*command), command->help);
        return;
    }
    for (const shell_command& command : shell_commands()) {
        print_help(usage_of(command), command.help);
    }
    print_help("![COMMAND]", "Run a command, or a shell, on this side");
}

void run_exit(shell_state& state, const arguments& /*given*/)
{
    state.ended = true;
}

constexpr std::size_t any = shell_command::any;

constexpr std::array commands{
    shell_command{"cat", "FILE...", "Print remote files", "", "r", 1, any, false,
                  [](shell_state& in, const arguments& given) { cat(in.remote, given.operands, in.how); }},
    shell_command{"cd", "[FOLDER | -]", "Change the remote folder; to that of the login; back", "", "R", 0, 1,
                  false, run_cd},
    shell_command{"du", "[-s] [PATH...]", "Print the sizes of remote trees; -s: only the sums", "s", "r", 0,
                  any, false,
                  [](shell_state& in, const arguments& given) {
                      du(in.remote, or_here(given.operands), given.has('s'), in.how);
                  }},
    shell_command{"exit", "", "End the shell", "", "", 0, 0, false, run_exit},
    shell_command{"get", "[-r] REMOTE [LOCAL]", "Fetch a file; -r: a folder", "r", "rl", 1, 2, false,
                  [](shell_state& in, const arguments& given) {
                      run_transfer(in, given, {given.at(0)}, given.at(1), get);
                  }},
    shell_command{"help", "[COMMAND]", "Print what there is to be said", "", "c", 0, 1, false, run_help},
    shell_command{"lcd", "[FOLDER | -]", "Change the local folder; to the home folder; back", "", "L", 0, 1,
                  false, run_lcd},
    shell_command{"lpwd", "", "Print the local folder", "", "", 0, 0, false,
                  [](shell_state& in, const arguments&) {
                      print_folder(std::filesystem::current_path().string(), in.how);
                  }},
    shell_command{"ls", "[-l] [-R] [PATH...]", "List folders; -l: the long form; -R: what is below, too", "lR",
                  "r", 0, any, true,
                  [](shell_state& in, const arguments& given) {
                      ls(in.remote, {given.operands, given.has('l'), given.has('R')}, in.how);
                  }},
    shell_command{
        "mget", "[-r] GLOB...", "Fetch what matches into the local folder; -r: folders, too", "r", "r", 1, any,
        false,
        [](shell_state& in, const arguments& given) { run_transfer(in, given, given.operands, "", get); }},
    shell_command{"mkdir", "[-p] FOLDER...", "Make folders; -p: those above, too", "p", "R", 1, any, true,
                  [](shell_state& in, const arguments& given) {
                      mkdir(in.remote, given.operands, given.has('p'), in.how);
                  }},
    shell_command{"mput", "[-r] GLOB...", "Send what matches into the remote folder; -r: folders, too", "r",
                  "l", 1, any, true,
                  [](shell_state& in, const arguments& given) {
                      run_transfer(in, given, expand_local(given.operands), "", put);
                  }},
    shell_command{"mv", "[-f] FROM TO", "Rename or move; -f: in place of what is there", "f", "r", 2, 2, true,
                  [](shell_state& in, const arguments& given) {
                      mv(in.remote, given.at(0), given.at(1), given.has('f'), in.how);
                  }},
    shell_command{"put", "[-r] LOCAL [REMOTE]", "Send a file; -r: a folder", "r", "lr", 1, 2, true,
                  [](shell_state& in, const arguments& given) {
                      run_transfer(in, given, {given.at(0)}, given.at(1), put);
                  }},
    shell_command{"pwd", "", "Print the remote folder", "", "", 0, 0, false,
                  [](shell_state& in, const arguments&) { print_folder(in.remote.working_folder(), in.how); }},
    shell_command{"quit", "", "End the shell", "", "", 0, 0, false, run_exit},
    shell_command{
        "rm", "[-r] PATH...", "Remove files; -r: folders with all that is in them", "r", "r", 1, any, true,
        [](shell_state& in, const arguments& given) { rm(in.remote, given.operands, given.has('r'), in.how); }},
    shell_command{"rmdir", "FOLDER...", "Remove empty folders", "", "R", 1, any, true,
                  [](shell_state& in, const arguments& given) { rmdir(in.remote, given.operands, in.how); }},
    shell_command{"stat", "PATH...", "Print what is known of remote files", "", "r", 1, any, false,
                  [](shell_state& in, const arguments& given) { stat(in.remote, given.operands, in.how); }},
    shell_command{"tree", "[FOLDER]", "Print a remote tree", "", "R", 0, 1, false,
                  [](shell_state& in, const arguments& given) {
                      tree(in.remote, {or_here(given.operands).front(), 0}, in.how);
                  }},
};

arguments parse(const shell_command& command, const std::vector<std::string>& words)
{
    const auto refuse = [&command](const std::string& why) {
        throw usage_error(why + ": it goes \"" + usage_of(command) + "\".");
    };
    arguments found;
    bool options = true;
    for (auto word = words.begin() + 1; word != words.end(); ++word) {
        if (options && *word == "--") {
            options = false;
        } else if (options && word->size() > 1 && word->front() == '-') {
            found.options += word->substr(1);
        } else {
            found.operands.push_back(*word);
        }
    }
    const auto unknown = found.options.find_first_not_of(command.options);
    if (unknown != std::string::npos) {
        refuse("There is no option -" + printable(found.options.substr(unknown, 1)));
    }
    if (found.operands.size() < command.least) {
        refuse("Something is missing");
    }
    if (found.operands.size() > command.most) {
        refuse("That is too much");
    }
    return found;
}

} // namespace

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
    const auto start = line.find_first_not_of(" \t\r\v\f");
    if (start != std::string::npos && line[start] == '!') {
        flush_output();
        run_local(line.substr(start + 1));
        return;
    }
    const std::vector<std::string> words = split_words(line);
    if (words.empty()) {
        return;
    }
    const shell_command* const command = find_command(words.front());
    if (command == nullptr) {
        throw usage_error("There is no command \"" + printable(words.front()) + R"("; "help" lists them.)");
    }
    const arguments given = parse(*command, words);
    if (command->changes) {
        state.names.forget();
    }
    command->run(state, given);
    flush_output();
}

} // namespace qrftp::cli

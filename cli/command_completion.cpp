#include "command_completion.hpp"

#include "exit_status.hpp"
#include "operands.hpp"
#include "output.hpp"
#include "parse.hpp"
#include "profile_options.hpp"
#include "remote_glob.hpp"
#include "tokenize.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

const CLI::Option* option_of(const CLI::App& command, const std::string& name)
{
    const auto all = command.get_options(
        [&name](const CLI::Option* one) { return one->nonpositional() && one->check_name(name); });
    return all.empty() ? nullptr : all.front();
}

/// The words of a line in front of the one that is completed.
class typed_words {
public:
    /// Reads `words` by the subcommands and options of `app`; they may be wrong.
    typed_words(CLI::App& app, const std::vector<std::string>& words) : command(&app)
    {
        for (const std::string& word : words) {
            read(word);
        }
    }

    CLI::App* command;                  ///< the subcommand that is named so far
    const CLI::Option* value = nullptr; ///< the option whose value the next word is
    std::size_t operands = 0;           ///< how many `command` has
    bool options_end = false;           ///< "--" has been there

private:
    void read(const std::string& word)
    {
        CLI::App* const below = operands == 0 ? find_subcommand(*command, word) : nullptr;
        if (value != nullptr) {
            value = nullptr;
        } else if (!options_end && word == "--") {
            options_end = true;
        } else if (!options_end && word.size() > 1 && word.front() == '-') {
            read_option(word);
        } else if (below != nullptr) {
            command = below;
        } else {
            ++operands;
        }
    }

    void read_option(const std::string& word)
    {
        if (word.starts_with("--")) {
            const CLI::Option* const named = option_of(*command, word);
            value = takes_value(named) ? named : nullptr; // One with "=" is not found by that name.
            return;
        }
        for (std::size_t letter = 1; letter < word.size(); ++letter) {
            const CLI::Option* const named = option_of(*command, std::string("-") + word[letter]);
            if (takes_value(named)) {
                value = letter + 1 == word.size() ? named : nullptr;
                return;
            }
        }
    }
};

/// Prints what a word may become, if it begins with what is typed of it.
class candidates {
public:
    explicit candidates(std::string typed) : typed_(std::move(typed)) {}

    void add(const std::string& word, const std::string& description = {}) const
    {
        if (word.starts_with(typed_) && word.find('\n') == std::string::npos) {
            print_line(description.empty() ? word : word + '\t' + description);
        }
    }
    static void add_files() { print_line(":files"); }
    [[nodiscard]] const std::string& typed() const { return typed_; }

private:
    std::string typed_;
};

void add_subcommands(const CLI::App& app, const candidates& found)
{
    for (const CLI::App* const one : app.get_subcommands([](const CLI::App*) { return true; })) {
        found.add(one->get_name(), one->get_description());
    }
}

void add_options(const CLI::App& command, const candidates& found)
{
    for (const CLI::Option* const one : command.get_options()) {
        for (const std::string& name : one->get_lnames()) {
            found.add("--" + name, one->get_description());
        }
    }
}

/// The values of an option, which its help shows as "none|strict", or local files.
void add_values(const CLI::Option& option, const std::string& before, const candidates& found)
{
    const std::string shown = option.get_type_name();
    if (shown.find("FILE") != std::string::npos || shown.find("FOLDER") != std::string::npos) {
        candidates::add_files();
    }
    for (std::size_t start = 0; start < shown.size();) {
        const std::size_t end = std::min(shown.find('|', start), shown.size());
        const std::string one = shown.substr(start, end - start);
        if (one.find_first_not_of("abcdefghijklmnopqrstuvwxyz-") == std::string::npos) {
            found.add(before + one);
        }
        start = end + 1;
    }
}

/// Leaves nobody to ask: a completion must not wait for an answer.
void give_up_terminal()
{
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (terminal >= 0) {
        (void)ioctl(terminal, TIOCNOTTY); // Where it fails, a question is asked.
        close(terminal);
    }
}

/// The part of `typed` in front of the name that it ends in.
std::string typed_folder(const std::string& typed)
{
    return typed.substr(0, typed.find_last_of("/:") + 1);
}

/// The names in the folder of that URL. `line` has the options of the line.
void add_remote_names(command_line& line, const std::string& folder_url, const candidates& found)
{
    const std::string folder = typed_folder(found.typed());
    give_up_terminal();
    line.login.host_key = line.login.host_key == "off" ? "off" : "strict";
    line.login.connect_timeout = std::min(line.login.connect_timeout, 10.0);
    const url place = url::parse(folder_url);
    session remote = login(place, line.login, line.options).open();
    const bool shows_hidden = found.typed().substr(folder.size()).starts_with('.');
    for (const entry& one : remote.list(or_here(place.path)).entries) {
        const bool is_folder = one.kind == entry_kind::folder;
        if (shows_hidden || !one.name.starts_with('.')) {
            found.add(folder + encode_for_url(one.name) + (is_folder ? "/" : ""));
        }
    }
}

/// The profiles; none where the file cannot be used, which running the line tells.
profile_list known_profiles()
try {
    return read_profiles();
} catch (const std::exception&) {
    return {};
}

void add_profiles(const profile_list& list, std::string_view end, const candidates& found)
{
    for (const profile& one : list.profiles) {
        if (end.empty() || one.name != defaults_name) {
            found.add(fmt::format("{}{}", one.name, end), one.text("url"));
        }
    }
}

/// What is on the server that the typed word names.
void add_remote(CLI::App& app, command_line& line, const std::vector<std::string>& words,
                const profile_list& list, const candidates& found)
{
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError&) {
        // The line is not finished; what it says so far holds.
    }
    use_profiles(app, line, list);
    const std::string folder = typed_folder(found.typed());
    const profile* const named = profile_of(list, folder);
    add_remote_names(line, named == nullptr ? folder : url_of(list, *named, folder), found);
}

void add_operand(CLI::App& app, command_line& line, const std::vector<std::string>& words,
                 const typed_words& before, const candidates& found)
{
    const CLI::Option* const shown = before.command->get_option_no_throw("operands");
    if (shown == nullptr) {
        add_subcommands(*before.command, found);
        return;
    }
    const auto possible = operands(shown->get_type_name()).next(before.operands);
    const auto may_be = [&possible](auto kind) { return std::ranges::any_of(possible, kind); };
    const profile_list list = known_profiles();
    if (may_be(may_be_remote) && (is_url(found.typed()) || profile_of(list, found.typed()) != nullptr)) {
        add_remote(app, line, words, list, found);
        return;
    }
    if (may_be(may_be_local)) {
        candidates::add_files();
    }
    if (may_be(may_be_remote)) {
        add_profiles(list, ":", found);
    }
    if (may_be([](const std::string& one) { return one == "NAME"; })) {
        add_profiles(list, "", found);
    }
    if (may_be([](const std::string& one) { return one == "KEY=VALUE"; })) {
        for (const CLI::Option* const key : profile_options(app)) {
            found.add(key->get_lnames().front() + '=', key->get_description());
        }
    }
}

void print_completions(CLI::App& app, command_line& line, const std::vector<std::string>& words)
{
    const std::string last = words.empty() ? "" : words.back();
    const typed_words before(app,
                             words.empty() ? words : std::vector<std::string>(words.begin(), words.end() - 1));
    const candidates found(last);
    const std::size_t sign = last.find('=');
    if (before.value != nullptr) {
        add_values(*before.value, "", found);
    } else if (!before.options_end && last.starts_with("--") && sign != std::string::npos) {
        const CLI::Option* const option = option_of(*before.command, last.substr(0, sign));
        if (takes_value(option)) {
            add_values(*option, last.substr(0, sign + 1), found);
        }
    } else if (!before.options_end && last.starts_with('-')) {
        add_options(*before.command, found);
    } else {
        add_operand(app, line, words, before, found);
    }
    flush_output();
}

} // namespace

bool is_completion(const std::vector<std::string>& arguments)
{
    return !arguments.empty() && (arguments.front() == "--complete" || arguments.front() == "--complete-line");
}

int complete(CLI::App& app, command_line& line, const std::vector<std::string>& arguments)
try {
    std::vector<std::string> words(arguments.begin() + 1, arguments.end());
    if (arguments.front() == "--complete-line") {
        const token_list found = tokenize(words.empty() ? "" : words.front());
        words.clear();
        std::ranges::transform(found.tokens, std::back_inserter(words), &token::text);
        if (found.at_new_word) {
            words.emplace_back();
        }
        words.erase(words.begin()); // the program's name
        print_line(":word\t" + (words.empty() ? "" : words.back()));
    }
    print_completions(app, line, words);
    return success;
} catch (const std::exception&) {
    return other_failure;
}

} // namespace qrftp::cli

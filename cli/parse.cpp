#include "parse.hpp"

#include "output.hpp"
#include "settings.hpp"
#include "usage_sentence.hpp"

#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace qrftp::cli {

namespace {

/// Whether the option that `word` is has its value in the next word.
bool takes_next(const CLI::App& command, const std::string& word)
{
    if (word.starts_with("--")) {
        return takes_value(command.get_option_no_throw(word));
    }
    for (std::size_t place = 1; place < word.size(); ++place) {
        if (takes_value(command.get_option_no_throw({'-', word[place]}))) {
            return place + 1 == word.size();
        }
    }
    return false;
}

/// CLI11 would take the operand "[ab]" for a list.
void protect_brackets(CLI::App& app, std::vector<std::string>& words)
{
    const CLI::App* const command = words.empty() ? nullptr : find_subcommand(app, words.front());
    if (command == nullptr) {
        return;
    }
    const std::vector<bool> operands = are_operands(*command, {words.begin() + 1, words.end()});
    for (std::size_t place = 1; place < words.size(); ++place) {
        std::string& word = words[place];
        if (operands[place - 1] && word.starts_with('[') && word.ends_with(']')) {
            word.insert(0, "./");
        }
    }
}

/// Of an option that is given twice the last value holds, so that an alias can be overridden.
void let_last_win(CLI::App& app)
{
    for (CLI::Option* const one :
         app.get_options([](const CLI::Option* all) { return all->nonpositional(); })) {
        if (one->get_items_expected_max() == 1) {
            one->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        }
    }
    for (CLI::App* const below : app.get_subcommands([](const CLI::App*) { return true; })) {
        let_last_win(*below);
    }
}

std::string see_help(const CLI::App& app, const CLI::App& command)
{
    const std::string& name = app.get_name();
    return fmt::format("See \"{}{}{} --help\".", name, name.empty() ? "" : " ", command.get_name());
}

std::string sentence_for(const CLI::App& app, const CLI::App& command, const CLI::ParseError& error)
{
    const std::vector<std::string> unknown = command.remaining();
    if (!unknown.empty() && unknown.front().starts_with('-')) {
        return fmt::format("{} has no option \"{}\". Usage: {}", command.get_name(), escape(unknown.front()),
                           usage_of(command));
    }
    if (!unknown.empty() && operands_of(command).empty()) {
        return fmt::format("{} takes no operands.", command.get_name());
    }
    return fmt::format("{} {}", usage_sentence(command, error), see_help(app, command));
}

[[noreturn]] void refuse(const CLI::App& app, const CLI::ParseError& error,
                         const std::vector<std::string>& words)
{
    const auto named = app.get_subcommands();
    if (!named.empty()) {
        throw usage_error(sentence_for(app, *named.front(), error));
    }
    if (app.get_name().empty()) {
        throw usage_error(
            fmt::format(R"(There is no command "{}"; "help" lists them.)", escape(words.front())));
    }
    const bool is_name = !words.empty() && !words.front().starts_with('-');
    const std::string sentence =
        is_name ? fmt::format("There is no subcommand \"{}\"", words.front()) : std::string(error.what());
    throw usage_error(fmt::format("{}. See \"qrftp --help\".", sentence));
}

} // namespace

bool takes_value(const CLI::Option* option)
{
    return option != nullptr && option->get_items_expected_max() > 0;
}

CLI::App* find_subcommand(CLI::App& app, std::string_view name)
{
    const auto found =
        app.get_subcommands([name](const CLI::App* one) { return one->check_name(std::string(name)); });
    return found.empty() ? nullptr : found.front();
}

std::vector<bool> are_operands(const CLI::App& command, const std::vector<std::string>& words)
{
    std::vector<bool> found;
    bool is_value = false;
    bool may_be_option = true;
    for (const std::string& word : words) {
        const bool is_option = !is_value && may_be_option && word.size() > 1 && word.front() == '-';
        found.push_back(!is_value && !is_option);
        may_be_option = may_be_option && !(is_option && word == "--");
        is_value = is_option && may_be_option && takes_next(command, word);
    }
    return found;
}

bool parse(CLI::App& app, std::vector<std::string> words)
{
    protect_brackets(app, words);
    let_last_win(app);
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend())); // CLI11's order
        return true;
    } catch (const CLI::Success& asked) {
        std::ostringstream text;
        app.exit(asked, text, text);
        print(text.str());
        flush_output();
        return false;
    } catch (const CLI::ParseError& error) {
        refuse(app, error, words);
    }
}

std::string operands_of(const CLI::App& command)
{
    const CLI::Option* const operands = command.get_option_no_throw("operands");
    return operands == nullptr ? "" : operands->get_type_name();
}

std::string usage_of(const CLI::App& command)
{
    const std::string operands = operands_of(command);
    return command.get_name() + " [OPTIONS]" + (operands.empty() ? "" : " " + operands);
}

} // namespace qrftp::cli

#include "profile_options.hpp"

#include "operands.hpp"
#include "subcommand.hpp"
#include "usage_sentence.hpp"

#include <qrftp/error.hpp>
#include <qrftp/url.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <set>
#include <utility>

namespace qrftp::cli {

namespace {

constexpr std::array own_keys{"url", "folder"};

bool is_own_key(const std::string& key)
{
    return std::ranges::find(own_keys, key) != own_keys.end();
}

bool is_flag(const CLI::Option& option)
{
    return option.get_items_expected_max() == 0 && option.get_type_name().empty(); // "--proxy" may have a value
}

bool is_repeatable(const CLI::Option& option)
{
    return option.get_items_expected_max() > 1;
}

CLI::Option* find_option(CLI::App& app, const std::string& key)
{
    const auto all = profile_options(app);
    const auto found = std::ranges::find_if(all, [&key](const CLI::Option* one) {
        return std::ranges::find(one->get_lnames(), key) != one->get_lnames().end();
    });
    return found == all.end() ? nullptr : *found;
}

/// Why a value of that kind cannot be the option's; empty where it can.
std::string fault_of_kind(const CLI::Option& option, const profile_setting& one)
{
    using enum profile_setting::kind;
    if (is_flag(option)) {
        return one.type == flag ? "" : "is either true or false";
    }
    if (one.type == flag) {
        return fmt::format("takes a value: {}", option.get_type_name());
    }
    return one.type == list && !is_repeatable(option) ? "takes one value, not a list" : "";
}

/// Throws `CLI::Error` for a value that it does not take.
void give(CLI::Option& option, const profile_setting& one)
{
    for (const std::string& value : one.values) {
        option.add_result(value);
    }
    option.run_callback();
}

std::string unknown_key(const std::string& key)
{
    return fmt::format(
        "there is no setting \"{}\". Settings are url, folder and the long options of subcommands", key);
}

void check_setting(CLI::App& app, const profile_list& list, const profile& table, const profile_setting& one)
{
    std::string fault;
    if (is_own_key(one.key)) {
        fault = table.name == defaults_name               ? fmt::format("{} belongs into a profile", one.key)
                : one.type != profile_setting::kind::text ? fmt::format("{} is a text", one.key)
                                                          : "";
    } else if (const CLI::Option* const option = find_option(app, one.key); option == nullptr) {
        fault = unknown_key(one.key);
    } else if (fault = fault_of_kind(*option, one); !fault.empty()) {
        fault = fmt::format("{} {}", one.key, fault);
    }
    if (!fault.empty()) {
        throw usage_error(fault_in(list, one.line, fmt::format("[{}] {}.", table.name, fault)));
    }
}

/// A word of the line that a profile gives.
struct profile_word {
    std::size_t place;
    const profile* named;
};

/// Throws `usage_error` where `word` would have to be a URL and is none, but could be "NAME:PATH".
void check_name(const profile_list& list, const std::string& word)
{
    const std::string name = word.substr(0, word.find(':'));
    if (is_url(word) || name.size() == word.size() || !fault_of_name(name).empty()) {
        return;
    }
    try {
        (void)url::parse(word);
    } catch (const InvalidUrl& why) {
        throw usage_error(
            fmt::format("{} There is no profile \"{}\" in {} either.", why.what(), name, list.file.string()));
    }
}

/// Puts URLs in place of names. In the shell only "open" takes them.
std::vector<profile_word> expand_words(const CLI::App& command, command_line& line, const profile_list& list)
{
    const CLI::Option* const shown = command.get_option_no_throw("operands");
    std::vector<profile_word> found;
    if (shown == nullptr || (is_shell(line) && shown->get_type_name() != "URL")) {
        return found;
    }
    for (std::size_t place = 0; place < line.words.size(); ++place) {
        const auto possible = operands(shown->get_type_name()).at(place, line.words.size());
        const profile* const named =
            std::ranges::any_of(possible, may_be_remote) ? profile_of(list, line.words[place]) : nullptr;
        if (named != nullptr) {
            line.words[place] = url_of(list, *named, line.words[place]);
            found.push_back({place, named});
        } else if (std::ranges::all_of(possible, [](const std::string& one) { return one == "URL"; })) {
            check_name(list, line.words[place]);
        }
    }
    return found;
}

bool is_given(const CLI::Option& option)
{
    const std::set<CLI::Option*> others = option.get_excludes();
    return option.count() > 0 ||
           std::ranges::any_of(others, [](const CLI::Option* other) { return other->count() > 0; });
}

/// Gives the options of `command` what the table says, unless they are given or among `fixed`. Where `group` is
/// not empty, only those of that group. Returns those that were set.
std::vector<CLI::Option*> use_table(CLI::App& command, const profile_list& list, const profile* table,
                                    const std::set<std::string>& fixed, const std::string& group = {})
{
    std::vector<CLI::Option*> set;
    for (const profile_setting& one : table == nullptr ? std::vector<profile_setting>() : table->settings) {
        const bool is_other = is_own_key(one.key) || fixed.contains(one.key);
        CLI::Option* const option = is_other ? nullptr : command.get_option_no_throw("--" + one.key);
        if (option == nullptr || is_given(*option) || (!group.empty() && option->get_group() != group)) {
            continue;
        }
        try {
            give(*option, one);
        } catch (const CLI::Error& error) {
            throw usage_error(
                fault_in(list, one.line, fmt::format("[{}] {}", table->name, usage_sentence(*option, error))));
        }
        set.push_back(option);
    }
    return set;
}

/// What the profile says about reaching its server. `command` and its options are as before afterwards.
login_options read_login(CLI::App& command, command_line& line, const profile_list& list, const profile& named)
{
    const login_options before = line.login;
    std::vector<CLI::Option*> set = use_table(command, list, &named, {}, "Connection");
    std::ranges::copy(use_table(command, list, list.find(defaults_name), {}, "Connection"),
                      std::back_inserter(set));
    std::ranges::for_each(set, [](CLI::Option* one) { one->clear(); });
    return std::exchange(line.login, before);
}

} // namespace

CLI::App& named_subcommand(CLI::App& app)
{
    const auto named = app.get_subcommands();
    return named.empty() ? app : named_subcommand(*named.front());
}

std::vector<CLI::Option*> profile_options(CLI::App& app)
{
    std::vector<CLI::Option*> found;
    std::set<std::string> names;
    for (CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
        std::vector<CLI::Option*> options = profile_options(*command);
        for (CLI::Option* const one : command->get_options()) {
            if (one->get_configurable() && !one->get_lnames().empty()) {
                options.push_back(one);
            }
        }
        std::ranges::copy_if(options, std::back_inserter(found), [&names](const CLI::Option* one) {
            return names.insert(one->get_lnames().front()).second;
        });
    }
    return found;
}

profile_setting make_setting(CLI::App& app, const std::string& key, std::vector<std::string> values)
{
    using enum profile_setting::kind;
    profile_setting made{.key = key, .values = std::move(values)};
    if (is_own_key(key)) {
        return made;
    }
    CLI::Option* const option = find_option(app, key);
    if (option == nullptr) {
        throw usage_error(fmt::format("In a profile, {}.", unknown_key(key)));
    }
    const bool is_number = std::ranges::all_of(made.values, [](const std::string& text) {
        return text.find_first_not_of("0123456789") == std::string::npos;
    });
    made.type = is_flag(*option) ? flag : is_repeatable(*option) ? list : is_number ? number : text;
    const bool is_switch =
        made.values == std::vector<std::string>{"true"} || made.values == std::vector<std::string>{"false"};
    if (made.type == flag && !is_switch && !made.values.empty()) {
        throw usage_error(fmt::format("{} is either true or false.", key));
    }
    if (made.type != list && made.values.size() > 1) {
        throw usage_error(fmt::format("{} takes one value.", key));
    }
    try {
        if (!made.values.empty()) {
            give(*option, made);
        }
    } catch (const CLI::Error& error) {
        throw usage_error(usage_sentence(*option, error));
    }
    return made;
}

void check_profiles(CLI::App& app, const profile_list& list)
{
    for (const profile& table : list.profiles) {
        for (const profile_setting& one : table.settings) {
            check_setting(app, list, table, one);
        }
    }
}

void use_profiles(CLI::App& app, command_line& line, const profile_list& list)
{
    CLI::App& command = named_subcommand(app);
    const std::vector<profile_word> words = expand_words(command, line, list);
    for (const profile_word& one : words) {
        if (one.named != words.front().named) {
            line.other_logins[line.words[one.place]] = read_login(command, line, list, *one.named);
        }
    }
    line.profile = words.empty() ? line.profile : words.front().named->name;
    use_table(command, list, list.find(line.profile), line.set_in_shell);
    use_table(command, list, list.find(defaults_name), line.set_in_shell);
}

} // namespace qrftp::cli

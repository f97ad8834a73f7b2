#include "exit_status.hpp"
#include "json.hpp"
#include "output.hpp"
#include "profile_edit.hpp"
#include "profile_options.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"
#include "table.hpp"

#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/format.h>

#include <map>

namespace qrftp::cli {

namespace {

const profile& find_profile(const profile_list& list, const std::string& name)
{
    const profile* const found = list.find(name);
    if (found == nullptr) {
        throw usage_error(fmt::format("There is no profile \"{}\" in {}.", name, list.file.string()));
    }
    return *found;
}

int list_profiles(const settings& options)
{
    std::vector<std::vector<cell>> rows;
    for (const profile& one : read_profiles().profiles) {
        if (options.json) {
            print_json({{"name", one.name}, {"url", one.text("url")}});
        } else {
            rows.push_back({{one.name}, {escape(one.text("url"))}});
        }
    }
    print(in_rows(rows, "ll"));
    flush_output();
    return success;
}

json to_json(const profile_setting& one)
{
    using enum profile_setting::kind;
    return one.type == list || one.values.empty() ? json(one.values)
           : one.type == flag                     ? json(one.values.front() == "true")
                                                  : json(one.values.front());
}

int show_profile(const command_line& line)
{
    const profile_list list = read_profiles();
    const profile& found = find_profile(list, line.words.front());
    json object{{"name", found.name}};
    for (const profile_setting& one : found.settings) {
        object[one.key] = to_json(one);
        if (!line.options.json) {
            print_line(escape(fmt::format("{} = {}", one.key, toml_value(one))));
        }
    }
    if (line.options.json) {
        print_json(object);
    }
    flush_output();
    return success;
}

/// KEY=VALUE words: the values of each key, none for an empty one.
std::map<std::string, std::vector<std::string>> read_assignments(const std::vector<std::string>& words)
{
    std::map<std::string, std::vector<std::string>> values;
    for (std::size_t place = 1; place < words.size(); ++place) {
        const std::size_t sign = words[place].find('=');
        if (sign == std::string::npos) {
            throw usage_error(fmt::format("\"{}\" is not of the form KEY=VALUE.", words[place]));
        }
        std::vector<std::string>& all = values[words[place].substr(0, sign)];
        if (sign + 1 < words[place].size()) {
            all.push_back(words[place].substr(sign + 1));
        }
    }
    return values;
}

int set_profile(CLI::App& app, const command_line& line)
{
    const std::string& name = line.words.front();
    if (const std::string fault = fault_of_name(name); !fault.empty() && name != defaults_name) {
        throw usage_error(fault);
    }
    profile_list list = read_profiles();
    for (auto& [key, values] : read_assignments(line.words)) {
        if (const std::string fault = fault_of_secret({.key = key, .values = values}); !fault.empty()) {
            throw usage_error(fault);
        }
        list = parse_profiles(list.file, with_setting(list, name, make_setting(app, key, std::move(values))));
    }
    check_profiles(app, list);
    write_config(list.file, list.content);
    return success;
}

int remove_profiles(const command_line& line)
{
    profile_list list = read_profiles();
    for (const std::string& name : line.words) {
        (void)find_profile(list, name);
        list = parse_profiles(list.file, without_profile(list, name));
    }
    write_config(list.file, list.content);
    return success;
}

CLI::App& add_action(CLI::App& group, command_line& line, const char* name, const char* help,
                     std::function<int()> run)
{
    CLI::App& command = *group.add_subcommand(name, help);
    command.callback([&line, run = std::move(run)] { line.run = run; });
    return command;
}

} // namespace

void add_profile_subcommand(CLI::App& app, command_line& line)
{
    CLI::App& group = *app.add_subcommand("profile", "Keep servers and options under names");
    group.require_subcommand(1);
    CLI::App& list = add_action(group, line, "list", "List the profiles with their URLs",
                                [&] { return list_profiles(line.options); });
    CLI::App& show =
        add_action(group, line, "show", "Print what a profile says", [&] { return show_profile(line); });
    add_operands(show, line, "NAME", "Profile, or defaults", 1, 1);
    for (CLI::App* const command : {&list, &show}) {
        command->add_flag("--json", line.options.json, "One JSON object a line");
    }
    CLI::App& set = add_action(group, line, "set", "Make or change a profile; KEY= removes the key",
                               [&] { return set_profile(app, line); });
    add_operands(set, line, "NAME KEY=VALUE...",
                 "Profile, or defaults; url, folder or a long option without its dashes", 2, any_number);
    CLI::App& remove =
        add_action(group, line, "remove", "Remove profiles", [&] { return remove_profiles(line); });
    add_operands(remove, line, "NAME...", "Profiles", 1, any_number);
}

} // namespace qrftp::cli

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace qrftp::cli {

/// The subcommand of `app` that is called so; null where there is none.
CLI::App* find_subcommand(CLI::App& app, std::string_view name);

/// Whether the option, which may be null, has a value.
bool takes_value(const CLI::Option* option);

/// Of the words behind the name of `command`, those that are operands: neither options nor the values of
/// options.
std::vector<bool> are_operands(const CLI::App& command, const std::vector<std::string>& words);

/// Parses the name of a subcommand with its words. Where they ask for help or the version, prints it and
/// returns false. Throws `usage_error`. An `app` without a name is the shell.
bool parse(CLI::App& app, std::vector<std::string> words);

/// The name and the operands of a subcommand, as help shows them.
std::string usage_of(const CLI::App& command);

/// What is behind the name of a subcommand in its usage: "[PATH...]".
std::string operands_of(const CLI::App& command);

} // namespace qrftp::cli

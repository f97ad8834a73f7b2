#pragma once

#include "command_line.hpp"

#include <qrftp/session.hpp>

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// What subcommands are made of.
namespace qrftp::cli {

/// Settles what depends on the terminal and the environment.
void resolve_settings(command_line& line);

std::vector<std::string> paths_of(const std::vector<url>& urls);
std::vector<std::string> patterns_of(const std::vector<url>& urls);

using url_action = std::function<void(session&, const std::vector<url>&)>;

/// Logs in where the URLs point to, and hands them to `act`.
void with_urls(command_line& line, const std::vector<std::string>& texts, const url_action& act);

/// Goes to the folder of a URL that names one.
void enter(session& remote, const url& place);

/// A subcommand with the options that all have. It gives `line` its `run`, which returns the exit status.
CLI::App& add_subcommand(CLI::App& app, command_line& line, const char* name, const char* help,
                         std::function<int()> run);

/// The operands of a subcommand, which its help shows as `shown`; at least `least` of them and at most `most`.
constexpr int any_number = 1 << 29;
void add_operands(CLI::App& command, command_line& line, const char* shown, const char* help, int least,
                  int most);

/// A subcommand that takes one or several URLs and hands them to `act`.
CLI::App& add_for_urls(CLI::App& app, command_line& line, const char* name, const char* help, bool several,
                       url_action act);

void add_dry_run(CLI::App& command, command_line& line);
void add_patterns(CLI::App& command, const char* name, std::vector<std::string>& patterns, const char* help);

} // namespace qrftp::cli

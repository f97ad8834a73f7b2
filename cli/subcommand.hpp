#pragma once

#include "command_line.hpp"

#include <qrftp/session.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

/// What subcommands are made of. One definition serves the command and the shell: the shell adds the same
/// subcommands to a `command_line` that has an open session. There they have no options about the login, and
/// where the command takes URLs they take names, which `with_urls` hands on as parts of that session's URL.
namespace qrftp::cli {

/// Settles what depends on the terminal and the environment.
void resolve_settings(command_line& line);

/// Whether `line` is of the shell.
bool is_shell(const command_line& line);

std::vector<std::string> paths_of(const std::vector<url>& urls);
std::vector<std::string> patterns_of(const std::vector<url>& urls);

using url_action = std::function<void(session&, const std::vector<url>&)>;

/// Logs in where the URLs point to, and hands them to `act`. In the shell, `texts` are names on the open
/// session; none stands for its working folder.
void with_urls(command_line& line, const std::vector<std::string>& texts, const url_action& act);

/// A word as a local path; in the shell, "~" that was not quoted is the user's home.
std::string local_name(const command_line& line, const std::string& word);
/// The local paths that patterns of the shell stand for. Throws where nothing matches one of them.
std::vector<std::string> expand_local(const std::vector<std::string>& patterns);
/// A word as a remote path that no URL gives, such as a new name; in the shell, "~" is the login folder.
std::string remote_name(const command_line& line, const std::string& word);

/// Goes to the folder of a URL that names one.
void enter(session& remote, const url& place);

/// A subcommand with the options that all have. It gives `line` its `run`, which returns the exit status.
CLI::App& add_subcommand(CLI::App& app, command_line& line, const char* name, const char* help,
                         std::function<int()> run);

/// The operands of a subcommand, which its help shows as `shown`; at least `least` of them and at most `most`.
/// The words of `shown` also tell the shell's completion what each one is (complete.cpp). There, "URL" is
/// shown as "PATH".
constexpr int any_number = 1 << 29;
void add_operands(CLI::App& command, command_line& line, const char* shown, const char* help, int least,
                  int most);

/// Changes what the operands of `command` are in the shell: "[FOLDER]", "PATH...". Those in brackets may be
/// left out; dots take any number; an empty text takes none.
void set_shell_operands(CLI::App& command, const command_line& line, const std::string& shown);

/// A subcommand that takes one or several URLs and hands them to `act`.
CLI::App& add_for_urls(CLI::App& app, command_line& line, const char* name, const char* help, bool several,
                       url_action act);

/// Lets the value of `option` be a number that is not negative, with one of `units`; its help shows it as
/// `shown`.
CLI::Option& take_units(CLI::Option& option, const std::map<std::string, std::uint64_t>& units,
                        const char* shown);
/// The same with the units of bytes, as in "10M".
CLI::Option& take_bytes(CLI::Option& option);

void add_dry_run(CLI::App& command, command_line& line);
/// -h, --human. Where a command has none, -h shows its help.
void add_human(CLI::App& command, command_line& line);
void add_patterns(CLI::App& command, const char* name, std::vector<std::string>& patterns, const char* help);

} // namespace qrftp::cli

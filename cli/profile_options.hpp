#pragma once

#include "command_line.hpp"
#include "profiles.hpp"

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

/// What profiles say about the options of the subcommands.
namespace qrftp::cli {

/// The subcommand that was named, at its lowest level; `app` itself without one.
CLI::App& named_subcommand(CLI::App& app);

/// The long options that a profile may have, each once, of all subcommands below `app`.
std::vector<CLI::Option*> profile_options(CLI::App& app);

/// The words of `key` for a profile, as the option of `app` takes them. Throws `usage_error` for an unknown key
/// and a value that the option does not take.
profile_setting make_setting(CLI::App& app, const std::string& key, std::vector<std::string> values);

/// Refuses keys that no subcommand of `app` has as an option, and values of another kind. Throws `usage_error`.
void check_profiles(CLI::App& app, const profile_list& list);

/// Gives the subcommand that was named what profiles say: a URL for each "NAME:PATH" where a URL may stand,
/// and, for options that the line does not have, the values of `line.profile`, which becomes the first profile
/// that is named, and of the defaults. Throws `usage_error`.
void use_profiles(CLI::App& app, command_line& line, const profile_list& list);

} // namespace qrftp::cli

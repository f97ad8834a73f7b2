#pragma once

#include "command_line.hpp"

namespace CLI {
class App;
}

namespace qrftp::cli {

/// Adds all subcommands, their options and help texts. Parsing fills `line` in, which must outlive `app`.
void add_subcommands(CLI::App& app, command_line& line);

/// Adds those of one kind.
void add_listing_subcommands(CLI::App& app, command_line& line);
void add_modifying_subcommands(CLI::App& app, command_line& line);
void add_transfer_subcommands(CLI::App& app, command_line& line);
void add_edit_subcommand(CLI::App& app, command_line& line);
void add_profile_subcommand(CLI::App& app, command_line& line);
void add_attribute_subcommands(CLI::App& app, command_line& line);
void add_copy_subcommand(CLI::App& app, command_line& line);
void add_find_subcommand(CLI::App& app, command_line& line);
void add_shell_subcommand(CLI::App& app, command_line& line);

} // namespace qrftp::cli

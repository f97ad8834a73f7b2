#pragma once

#include "command_line.hpp"
#include "commands.hpp"

namespace CLI {
class App;
}

namespace qrftp::cli {

/// The options of all that copies files and folders, and what the command line says by them.
void add_transfer_options(CLI::App& command, command_line& line);
transfer_arguments transfer_of(const command_line& line);

} // namespace qrftp::cli

#include "subcommands.hpp"

#include "subcommand.hpp"

namespace qrftp::cli {

void add_subcommands(CLI::App& app, command_line& line)
{
    add_listing_subcommands(app, line);
    add_transfer_subcommands(app, line);
    add_edit_subcommand(app, line);
    add_modifying_subcommands(app, line);
    add_attribute_subcommands(app, line);
    add_copy_subcommand(app, line);
    add_find_subcommand(app, line);
    if (!is_shell(line)) {
        add_shell_subcommand(app, line);
        add_profile_subcommand(app, line);
    }
}

} // namespace qrftp::cli

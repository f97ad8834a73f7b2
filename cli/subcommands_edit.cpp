#include "commands.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

namespace qrftp::cli {

void add_edit_subcommand(CLI::App& app, command_line& line)
{
    add_for_urls(
        app, line, "edit", "Edit a file with $VISUAL, else $EDITOR, else vi", false,
        [&](session& remote, const std::vector<url>& urls) { edit(remote, urls.front().path, line.options); });
}

} // namespace qrftp::cli

#include "commands.hpp"
#include "exit_status.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace qrftp::cli {

namespace {

int run_mv(command_line& line)
{
    if (!is_shell(line) && is_url(line.words.back())) {
        throw usage_error("The new name is a path on the same server, not a URL.");
    }
    with_urls(line, {line.words.front()}, [&](session& remote, const std::vector<url>& urls) {
        const std::string& whole = urls.front().path;
        const std::string from = whole.substr(0, whole.find_last_not_of('/') + 1);
        const std::string to = remote_name(line, line.words.back());
        const bool is_whole = is_shell(line) || to.starts_with('/');
        const std::string beside = is_whole ? "" : from.substr(0, from.rfind('/') + 1);
        mv(remote, from, beside + to, line.replace, line.options);
    });
    return success;
}

} // namespace

void add_modifying_subcommands(CLI::App& app, command_line& line)
{
    CLI::App& remove = add_for_urls(app, line, "rm", "Remove files and folders", true,
                                    [&](session& remote, const std::vector<url>& urls) {
                                        rm(remote, patterns_of(urls), line.recursive, line.options);
                                    });
    remove.add_flag("-r,--recursive", line.recursive, "Folders too, with all that is in them");
    CLI::App& move =
        add_subcommand(app, line, "mv", "Rename or move a file or folder", [&] { return run_mv(line); });
    add_operands(move, line, "URL NEWPATH", "A relative NEWPATH is seen from the folder of the old name", 2, 2);
    set_shell_operands(move, line, "PATH NEWPATH");
    move.add_flag("-f,--replace", line.replace, "Replace a file that has the new name");
    CLI::App& make = add_for_urls(app, line, "mkdir", "Make folders", true,
                                  [&](session& remote, const std::vector<url>& urls) {
                                      mkdir(remote, paths_of(urls), line.parents, line.options);
                                  });
    set_shell_operands(make, line, "FOLDER...");
    make.add_flag("-p,--parents", line.parents,
                  "Make missing folders above too; a folder that exists is no error");
    CLI::App& remove_folder = add_for_urls(
        app, line, "rmdir", "Remove empty folders", true,
        [&](session& remote, const std::vector<url>& urls) { rmdir(remote, paths_of(urls), line.options); });
    set_shell_operands(remove_folder, line, "FOLDER...");
    for (CLI::App* command : {&remove, &move, &make, &remove_folder}) {
        add_dry_run(*command, line);
    }
}

} // namespace qrftp::cli

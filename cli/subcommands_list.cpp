#include "commands.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

namespace qrftp::cli {

namespace {

void add_ls(CLI::App& app, command_line& line, const char* name, const char* help, bool long_form)
{
    CLI::App& list = add_for_urls(app, line, name, help, true,
                                  [&line, long_form](session& remote, const std::vector<url>& urls) {
                                      list_options how = line.list;
                                      how.long_form = how.long_form || long_form;
                                      ls(remote, {patterns_of(urls), how, line.recursive}, line.options);
                                  });
    set_shell_operands(list, line, "[PATH...]");
    add_human(list, line);
    list.add_flag("-l,--long", line.list.long_form, "Mode, owner, group, size, time and name");
    list.add_flag("-R,--recursive", line.recursive, "The folders below too");
    list.add_flag("-a,--all", line.list.hidden, "Also names that begin with a dot (--json has them anyway)");
    list.add_flag("-1,--one-column", line.list.one_column, "One name a line");
    list.add_flag("-t,--by-time", line.list.by_time, "Sort by time, the newest first");
    list.add_flag("-S,--by-size", line.list.by_size, "Sort by size, the largest first");
    list.add_flag("-r,--reverse", line.list.reverse, "Sort the other way round");
}

void add_inspecting(CLI::App& app, command_line& line)
{
    CLI::App& branches = add_for_urls(app, line, "tree", "Print a folder as a tree", false,
                                      [&](session& remote, const std::vector<url>& urls) {
                                          tree(remote, {urls.front().path, line.depth}, line.options);
                                      });
    set_shell_operands(branches, line, "[FOLDER]");
    branches.add_option("--depth", line.depth, "How many levels; 0: all")
        ->type_name("N")
        ->capture_default_str();
    CLI::App& facts = add_for_urls(
        app, line, "stat", "Print what is known of files and folders", true,
        [&](session& remote, const std::vector<url>& urls) { stat(remote, patterns_of(urls), line.options); });
    add_human(facts, line);
    add_for_urls(
        app, line, "cat", "Print the content of files", true,
        [&](session& remote, const std::vector<url>& urls) { cat(remote, patterns_of(urls), line.options); });
    CLI::App& sizes = add_for_urls(app, line, "du", "Print the sizes of folders with all that is in them", true,
                                   [&](session& remote, const std::vector<url>& urls) {
                                       du(remote, patterns_of(urls), line.summarize, line.options);
                                   });
    set_shell_operands(sizes, line, "[PATH...]");
    add_human(sizes, line);
    sizes.add_flag("-s,--summarize", line.summarize, "Only the totals of the folders that are named");
}

void add_server_commands(CLI::App& app, command_line& line)
{
    CLI::App& place = add_for_urls(app, line, "pwd", "Print the folder as the server names it", false,
                                   [&](session& remote, const std::vector<url>& urls) {
                                       enter(remote, urls.front());
                                       pwd(remote, line.options);
                                   });
    set_shell_operands(place, line, "");
    CLI::App& description =
        add_for_urls(app, line, "ping", "Connect, log in, and describe the server", false,
                     [&](session& remote, const std::vector<url>&) { ping(remote, line.count, line.options); });
    set_shell_operands(description, line, "");
    description.add_option("-c,--count", line.count, "How many round trips, one a second")
        ->check(CLI::PositiveNumber.description(""))
        ->type_name("N")
        ->capture_default_str();
}

} // namespace

void add_listing_subcommands(CLI::App& app, command_line& line)
{
    add_ls(app, line, "ls", "List folders and files", false);
    if (is_shell(line)) {
        add_ls(app, line, "dir", "List folders and files with details", true);
    }
    add_inspecting(app, line);
    add_server_commands(app, line);
}

} // namespace qrftp::cli

#include "commands.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

namespace qrftp::cli {

namespace {

void add_inspecting(CLI::App& app, command_line& line)
{
    CLI::App& list = add_for_urls(
        app, line, "ls", "List folders and files", true, [&](session& remote, const std::vector<url>& urls) {
            ls(remote, {patterns_of(urls), line.long_form, line.recursive}, line.options);
        });
    list.add_flag("-l,--long", line.long_form, "Mode, owner, group, size, time and name");
    list.add_flag("-R,--recursive", line.recursive, "The folders below too");
    add_for_urls(app, line, "tree", "Print a folder as a tree", false,
                 [&](session& remote, const std::vector<url>& urls) {
                     tree(remote, {urls.front().path, line.depth}, line.options);
                 })
        .add_option("--depth", line.depth, "How many levels; 0: all")
        ->type_name("N")
        ->capture_default_str();
    add_for_urls(
        app, line, "stat", "Print what is known of files and folders", true,
        [&](session& remote, const std::vector<url>& urls) { stat(remote, patterns_of(urls), line.options); });
    add_for_urls(
        app, line, "cat", "Print the content of files", true,
        [&](session& remote, const std::vector<url>& urls) { cat(remote, patterns_of(urls), line.options); });
    add_for_urls(app, line, "du", "Print the sizes of folders with all that is in them", true,
                 [&](session& remote, const std::vector<url>& urls) {
                     du(remote, patterns_of(urls), line.summarize, line.options);
                 })
        .add_flag("-s,--summarize", line.summarize, "Only the totals of the folders that are named");
}

void add_server_commands(CLI::App& app, command_line& line)
{
    add_for_urls(app, line, "pwd", "Print the folder as the server names it", false,
                 [&](session& remote, const std::vector<url>& urls) {
                     enter(remote, urls.front());
                     pwd(remote, line.options);
                 });
    add_for_urls(app, line, "ping", "Connect, log in, and describe the server", false,
                 [&](session& remote, const std::vector<url>&) { ping(remote, line.count, line.options); })
        .add_option("-c,--count", line.count, "How many round trips, one a second")
        ->check(CLI::PositiveNumber.description(""))
        ->type_name("N")
        ->capture_default_str();
}

} // namespace

void add_listing_subcommands(CLI::App& app, command_line& line)
{
    add_inspecting(app, line);
    add_server_commands(app, line);
}

} // namespace qrftp::cli

#include "commands.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <map>
#include <memory>

namespace qrftp::cli {

namespace {

void add_age(CLI::App& command, const char* name, std::optional<std::uint64_t>& seconds, const char* help)
{
    take_units(*command.add_option(name, seconds, help),
               {{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}}, "N[s|m|h|d|w]");
}

} // namespace

void add_find_subcommand(CLI::App& app, command_line& line)
{
    const auto wanted = std::make_shared<find_arguments>();
    CLI::App& search = add_for_urls(app, line, "find", "Print the paths in folders that fit", true,
                                    [&line, wanted](session& remote, const std::vector<url>& urls) {
                                        wanted->patterns = patterns_of(urls);
                                        find(remote, *wanted, line.options);
                                    });
    set_shell_operands(search, line, "[PATH...]");
    search.add_option("--name", wanted->name, "Names that match")->type_name("GLOB");
    search.add_option("--type", wanted->type, "f: files, d: folders, l: links")
        ->check(CLI::IsMember({"f", "d", "l"}).description(""))
        ->type_name("TYPE");
    add_age(search, "--newer", wanted->newer, "Changed less than so long ago");
    add_age(search, "--older", wanted->older, "Changed more than so long ago");
    take_bytes(*search.add_option("--larger", wanted->larger, "Files of more bytes"));
    take_bytes(*search.add_option("--smaller", wanted->smaller, "Files of fewer bytes"));
    search.add_option("--max-depth", wanted->max_depth, "How many levels; 0: all")
        ->type_name("N")
        ->capture_default_str();
    search.add_flag("-0,--null", wanted->null, "End each path by a NUL byte, as xargs -0 reads them");
}

} // namespace qrftp::cli

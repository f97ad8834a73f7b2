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

using units = std::map<std::string, std::uint64_t>;

void add_amount(CLI::App& command, const char* name, std::optional<std::uint64_t>& amount, const units& known,
                const char* type, const char* help)
{
    command.add_option(name, amount, help)
        ->transform(CLI::AsNumberWithUnit(known, CLI::AsNumberWithUnit::DEFAULT).description(""))
        ->type_name(type);
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
    const units times{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}};
    const units sizes{{"k", 1ULL << 10U}, {"m", 1ULL << 20U}, {"g", 1ULL << 30U}, {"t", 1ULL << 40U}};
    add_amount(search, "--newer", wanted->newer, times, "N[s|m|h|d|w]", "Changed less than so long ago");
    add_amount(search, "--older", wanted->older, times, "N[s|m|h|d|w]", "Changed more than so long ago");
    add_amount(search, "--larger", wanted->larger, sizes, "N[k|M|G|T]", "Files of more bytes");
    add_amount(search, "--smaller", wanted->smaller, sizes, "N[k|M|G|T]", "Files of fewer bytes");
    search.add_option("--max-depth", wanted->max_depth, "How many levels; 0: all")
        ->type_name("N")
        ->capture_default_str();
    search.add_flag("-0,--null", wanted->null, "End each path by a NUL byte, as xargs -0 reads them");
}

} // namespace qrftp::cli

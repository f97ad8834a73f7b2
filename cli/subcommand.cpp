#include "subcommand.hpp"

#include "environment.hpp"
#include "exit_status.hpp"

#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <utility>

#include <unistd.h>

namespace qrftp::cli {

static_assert(any_number == CLI::detail::expected_max_vector_size);

void resolve_settings(command_line& line)
{
    settings& options = line.options;
    const bool plain =
        !environment("NO_COLOR").value_or("").empty() || environment("TERM").value_or("") == "dumb";
    options.colour = line.colour == "always" || (line.colour == "auto" && !plain && isatty(STDOUT_FILENO) != 0);
    const bool shows_lines = isatty(STDERR_FILENO) != 0 && !options.quiet && options.verbose == 0;
    options.progress = line.progress == "json"                  ? progress_style::json
                       : line.progress == "auto" && shows_lines ? progress_style::lines
                                                                : progress_style::none;
    if (options.json) {
        report_as_json();
    }
    if (options.verbose > 0) {
        set_trace(options.verbose == 1 ? trace_level::dialogue : trace_level::debug);
    }
}

std::vector<std::string> paths_of(const std::vector<url>& urls)
{
    std::vector<std::string> paths;
    for (const url& one : urls) {
        paths.push_back(one.path);
    }
    return paths;
}

std::vector<std::string> patterns_of(const std::vector<url>& urls)
{
    std::vector<std::string> patterns;
    for (const url& one : urls) {
        patterns.push_back(one.pattern);
    }
    return patterns;
}

void with_urls(command_line& line, const std::vector<std::string>& texts, const url_action& act)
{
    resolve_settings(line);
    const std::vector<url> urls = parse_urls(texts);
    session remote = login(urls.front(), line.login, line.options).open();
    act(remote, urls);
}

void enter(session& remote, const url& place)
{
    if (!place.path.empty()) {
        remote.change_folder(place.path);
    }
}

CLI::App& add_subcommand(CLI::App& app, command_line& line, const char* name, const char* help,
                         std::function<int()> run)
{
    CLI::App& command = *app.add_subcommand(name, help);
    command.callback([&line, run = std::move(run)] { line.run = run; });
    command.option_defaults()->group("Output");
    command.add_flag("--json", line.options.json,
                     "Print JSON, one object per line; failures too, on standard error");
    command.add_flag("-h,--human", line.options.human, "Sizes with units");
    command.add_option("--colour,--color", line.colour, "Colours; auto: at a terminal")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("auto|always|never")
        ->capture_default_str();
    command.add_flag("-q,--quiet", line.options.quiet, "Print nothing but results and errors");
    command.add_flag("-v,--verbose", line.options.verbose,
                     "The dialogue with the server, and what is done; -vv: also what the libraries say");
    command.option_defaults()->group("Options");
    add_login_options(command, line.login);
    return command;
}

void add_operands(CLI::App& command, command_line& line, const char* shown, const char* help, int least,
                  int most)
{
    command.add_option("operands", line.words, help)->required()->expected(least, most)->type_name(shown);
}

CLI::App& add_for_urls(CLI::App& app, command_line& line, const char* name, const char* help, bool several,
                       url_action act)
{
    CLI::App& command = add_subcommand(app, line, name, help, [&line, act = std::move(act)] {
        with_urls(line, line.words, act);
        return success;
    });
    add_operands(command, line, several ? "URL..." : "URL",
                 several ? "Remote paths, all on one server" : "Remote path", 1, several ? any_number : 1);
    return command;
}

void add_dry_run(CLI::App& command, command_line& line)
{
    command.add_flag("--dry-run", line.options.dry_run, "Print what would be done, do nothing");
}

void add_patterns(CLI::App& command, const char* name, std::vector<std::string>& patterns, const char* help)
{
    command.add_option(name, patterns, help)->type_name("GLOB")->allow_extra_args(false);
}

} // namespace qrftp::cli

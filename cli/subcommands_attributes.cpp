#include "commands.hpp"
#include "exit_status.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"
#include "time_argument.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>

namespace qrftp::cli {

namespace {

int run_chmod(command_line& line)
{
    with_urls(line, {line.words.begin() + 1, line.words.end()},
              [&](session& remote, const std::vector<url>& urls) {
                  chmod(remote, line.words.front(), patterns_of(urls), line.recursive, line.options);
              });
    return success;
}

/// The link's target is a text; that of a hard link, which is a path on the same server, stands in the URL.
int run_ln(command_line& line, bool symbolic)
{
    const std::string& text = symbolic ? line.words.front() : line.words.back();
    if (!is_shell(line) && is_url(text)) {
        throw usage_error(symbolic ? "What a link leads to is a path, not a URL."
                                   : "The new name is a path on the same server, not a URL.");
    }
    with_urls(line, {symbolic ? line.words.back() : line.words.front()},
              [&](session& remote, const std::vector<url>& urls) {
                  const std::string& path = urls.front().path;
                  if (symbolic) {
                      ln(remote, text, path, true, line.options);
                      return;
                  }
                  const std::string name = remote_name(line, text);
                  const bool is_whole = is_shell(line) || name.starts_with('/');
                  const std::string beside = is_whole ? "" : path.substr(0, path.rfind('/') + 1);
                  ln(remote, path, beside + name, false, line.options);
              });
    return success;
}

void add_touch(CLI::App& app, command_line& line)
{
    const auto no_create = std::make_shared<bool>(false);
    const auto when = std::make_shared<std::string>();
    CLI::App& touched = add_for_urls(app, line, "touch", "Make empty files, set modification times", true,
                                     [&line, no_create, when](session& remote, const std::vector<url>& urls) {
                                         touch_arguments arguments{paths_of(urls), *no_create};
                                         if (!when->empty()) {
                                             arguments.when = parse_time(*when);
                                         }
                                         touch(remote, arguments, line.options);
                                     });
    touched.add_flag("-c,--no-create", *no_create, "Make no file");
    touched
        .add_option("-d,--date", *when,
                    "This time instead of now: 2024-05-01, \"2024-05-01 12:30\"; UTC with a Z")
        ->type_name("TIME");
    add_dry_run(touched, line);
}

} // namespace

void add_attribute_subcommands(CLI::App& app, command_line& line)
{
    CLI::App& mode = add_subcommand(app, line, "chmod", "Change permissions", [&] { return run_chmod(line); });
    add_operands(mode, line, "MODE URL...", "644, or u+x,go-w; remote paths, all on one server", 2, any_number);
    mode.add_flag("-R,--recursive", line.recursive, "Folders with all that is in them");
    add_dry_run(mode, line);
    const auto symbolic = std::make_shared<bool>(false);
    CLI::App& link =
        add_subcommand(app, line, "ln", "Make links", [&line, symbolic] { return run_ln(line, *symbolic); });
    add_operands(link, line, "-s TARGET URL | URL NEWPATH",
                 "What the link says, and where it goes; or a file and a further name of it", 2, 2);
    set_shell_operands(link, line, "TARGET PATH");
    link.add_flag("-s,--symbolic", *symbolic, "A symbolic link");
    add_dry_run(link, line);
    add_touch(app, line);
    CLI::App& room = add_for_urls(
        app, line, "df", "Print how much room there is", true,
        [&](session& remote, const std::vector<url>& urls) { df(remote, paths_of(urls), line.options); });
    set_shell_operands(room, line, "[PATH...]");
    add_human(room, line);
}

} // namespace qrftp::cli

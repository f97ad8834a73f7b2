#include "commands.hpp"
#include "exit_status.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"
#include "subcommands_transfer.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace qrftp::cli {

namespace {

int run_cp(command_line& line)
{
    const url target = url::parse(line.words.back());
    with_urls(line, {line.words.begin(), line.words.end() - 1},
              [&](session& from, const std::vector<url>& urls) {
                  transfer_arguments arguments = transfer_of(line);
                  arguments.sources = patterns_of(urls);
                  arguments.target = target.path;
                  const url& here = from.location();
                  if (here.server() == target.server() && here.user == target.user) {
                      cp(from, from, arguments, line.options);
                      return;
                  }
                  session to = login(target, line.login, line.options).open();
                  cp(from, to, arguments, line.options);
              });
    return success;
}

} // namespace

void add_copy_subcommand(CLI::App& app, command_line& line)
{
    CLI::App& copy =
        add_subcommand(app, line, "cp", "Copy from server to server, or on one", [&] { return run_cp(line); });
    add_operands(copy, line, "URL... URL", "Remote paths, all on one server; file, or folder to put them in", 2,
                 any_number);
    add_transfer_options(copy, line);
    copy.add_flag("-r,--recursive", line.recursive, "Folders too, with all that is in them");
    copy.add_flag("-t,--keep-time", line.transfer.transfer.keep_time, "Keep the modification times");
}

} // namespace qrftp::cli

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

void copy_to(session& from, session& to, const command_line& line, const std::vector<url>& sources,
             const std::string& target)
{
    transfer_arguments arguments = transfer_of(line);
    arguments.sources = patterns_of(sources);
    arguments.target = target;
    cp(from, to, arguments, line.options);
}

int run_cp(command_line& line)
{
    if (is_shell(line)) {
        with_urls(line, line.words, [&](session& remote, const std::vector<url>& paths) {
            copy_to(remote, remote, line, {paths.begin(), paths.end() - 1}, paths.back().path);
        });
        return success;
    }
    const url target = url::parse(line.words.back());
    with_urls(line, {line.words.begin(), line.words.end() - 1},
              [&](session& from, const std::vector<url>& urls) {
                  const url& here = from.location();
                  if (here.server() == target.server() && here.user == target.user) {
                      copy_to(from, from, line, urls, target.path);
                      return;
                  }
                  session to = login(target, line.login_of(line.words.back()), line.options).open();
                  copy_to(from, to, line, urls, target.path);
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

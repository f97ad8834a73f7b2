#include "exit_status.hpp"
#include "help.hpp"
#include "interrupt.hpp"
#include "output.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <clocale>
#include <iostream>

using namespace qrftp::cli;

namespace {

/// Of an error on the command line.
[[noreturn]] void refuse(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv)
{
    const auto named = app.get_subcommands();
    std::string sentence = error.what();
    if (named.empty() && argc > 1 && *argv[1] != '-') {
        sentence = "There is no subcommand \"" + std::string(argv[1]) + "\"";
    }
    throw usage_error(sentence + (sentence.ends_with('.') ? "" : ".") + " \"qrftp " +
                      (named.empty() ? "" : named.front()->get_name() + " ") + "--help\" tells what there is.");
}

int run(int argc, char** argv)
{
    CLI::App app("Lists, fetches, sends and changes files over FTP, FTPS and SFTP.", "qrftp");
    app.require_subcommand(1);
    app.set_version_flag("--version", version_text(), "Print the versions and end");
    set_up_help(app);
    command_line given;
    add_subcommands(app, given);
    app.footer(help_footer());
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        app.exit(asked);
        flush_output();
        return success;
    } catch (const CLI::ParseError& error) {
        refuse(app, error, argc, argv);
    }
    return given.run();
}

} // namespace

int main(int argc, char** argv)
try {
    (void)std::setlocale(LC_CTYPE, ""); // NOLINT(concurrency-mt-unsafe): one thread
    install_interrupt_handlers();
    return run(argc, argv);
} catch (const std::exception& error) {
    report(error);
    return status_of(error);
}

#include "exit_status.hpp"
#include "help.hpp"
#include "interrupt.hpp"
#include "login.hpp"
#include "output.hpp"
#include "subcommands.hpp"

#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <clocale>
#include <span>
#include <sstream>

using namespace qrftp::cli;

namespace {

/// Of an error on the command line.
[[noreturn]] void refuse(const CLI::App& app, const CLI::ParseError& error,
                         const std::vector<std::string>& arguments)
{
    const auto named = app.get_subcommands();
    std::string sentence = error.what();
    if (!named.empty() && sentence.starts_with("operands")) {
        const CLI::Option* const operands = named.front()->get_option("operands");
        sentence = fmt::format("\"{}\" needs {}", named.front()->get_name(), operands->get_type_name());
    }
    if (named.empty() && !arguments.empty() && !arguments.front().starts_with('-')) {
        sentence = fmt::format("There is no subcommand \"{}\"", arguments.front());
    }
    throw usage_error(fmt::format("{}{} See \"qrftp {}--help\".", sentence, sentence.ends_with('.') ? "" : ".",
                                  named.empty() ? "" : named.front()->get_name() + " "));
}

int run(const std::vector<std::string>& arguments)
{
    CLI::App app("Lists, fetches, sends and changes files over FTP, FTPS and SFTP.", "qrftp");
    app.require_subcommand(1);
    app.set_version_flag("--version", version_text(), "Show the versions");
    set_up_help(app);
    command_line line;
    add_subcommands(app, line);
    app.footer(help_footer());
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend())); // CLI11's order
    } catch (const CLI::Success& asked) {
        std::ostringstream text;
        app.exit(asked, text, text);
        print(text.str());
        flush_output();
        return success;
    } catch (const CLI::ParseError& error) {
        refuse(app, error, arguments);
    }
    return line.run();
}

} // namespace

int main(int argc, char** argv)
try {
    (void)std::setlocale(LC_CTYPE, ""); // NOLINT(concurrency-mt-unsafe): one thread
    install_interrupt_handlers();
    const std::span<char*> words(argv, static_cast<std::size_t>(argc));
    std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
    hide_passwords(words);
    join_proxy_url(arguments);
    return run(arguments);
} catch (const std::exception& error) {
    report(error);
    return status_of(error);
}

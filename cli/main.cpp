#include "command_completion.hpp"
#include "exit_status.hpp"
#include "help.hpp"
#include "interrupt.hpp"
#include "login.hpp"
#include "output.hpp"
#include "profile_options.hpp"
#include "subcommands.hpp"
#include "usage_sentence.hpp"

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
[[noreturn]] void refuse(CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments)
{
    const CLI::App& command = named_subcommand(app);
    const bool is_top = &command == &app;
    const bool is_name = is_top && !arguments.empty() && !arguments.front().starts_with('-');
    std::string name;
    for (const CLI::App* one = &command; one != &app; one = one->get_parent()) {
        name.insert(0, one->get_name() + ' ');
    }
    throw usage_error(fmt::format("{} See \"qrftp {}--help\".",
                                  is_name ? fmt::format("There is no subcommand \"{}\".", arguments.front())
                                          : usage_sentence(command, error),
                                  name));
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
    if (is_completion(arguments)) {
        return complete(app, line, arguments);
    }
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
    const profile_list profiles = read_profiles();
    check_profiles(app, profiles);
    use_profiles(app, line, profiles);
    return line.run();
}

} // namespace

int main(int argc, char** argv)
try {
    (void)std::setlocale(LC_CTYPE, ""); // NOLINT(concurrency-mt-unsafe): one thread
    install_interrupt_handlers();
    const std::span<char*> words(argv, static_cast<std::size_t>(argc));
    const std::vector<std::string> arguments(words.begin() + (words.empty() ? 0 : 1), words.end());
    hide_passwords(words);
    if (std::ranges::find(arguments, "--json") != arguments.end()) {
        report_as_json(); // Also where the line cannot be understood.
    }
    return run(arguments);
} catch (const std::exception& error) {
    report(error);
    return status_of(error);
}

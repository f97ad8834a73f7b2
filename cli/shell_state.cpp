#include "shell_state.hpp"

#include "exit_status.hpp"
#include "help.hpp"
#include "interrupt.hpp"
#include "shell_commands.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <qrftp/glob.hpp>

#include <utility>

namespace qrftp::cli {

namespace {

/// Only operands are patterns: the values of options lose their quoting here.
void unquote_values(CLI::App& commands)
{
    for (CLI::App* const command : commands.get_subcommands({})) {
        for (CLI::Option* const option : command->get_options()) {
            if (option->nonpositional() && option->get_items_expected_max() > 0) {
                option->transform([](const std::string& value) { return glob_unescape(value); });
            }
        }
    }
}

} // namespace

shell_state::shell_state(const command_line& given)
{
    defaults.login = given.login;
    defaults.options = given.options;
    defaults.colour = given.colour;
    defaults.profile = given.profile;
    defaults.open_session = [this]() -> session& { return remote(); };
    reset_line();
}

shell_state::~shell_state() = default;

void shell_state::reset_line()
{
    line = defaults;
    report_as_json(defaults.options.json);
    commands = std::make_unique<CLI::App>();
    commands->require_subcommand(1);
    set_up_help(*commands);
    commands->footer("");
    add_subcommands(*commands, line);
    add_shell_commands(*commands, *this);
    unquote_values(*commands);
}

void shell_state::open(const std::string& place, const login_options& options)
{
    const url server = parse_urls({place}).front();
    const login way(server, options, defaults.options);
    session fresh = way.open();
    enter(fresh, server);
    session_.emplace(std::move(fresh));
    way_.emplace(way);
    names.forget();
    last_folder.clear();
    is_cancelled_ = false;
}

void shell_state::close()
{
    session_.reset();
    way_.reset();
    names.forget();
}

session& shell_state::remote()
{
    if (!session_) {
        throw usage_error("No server is open; \"open URL\" opens one.");
    }
    if (is_cancelled_) {
        session fresh = way_->open();
        fresh.change_folder(session_->working_folder());
        *session_ = std::move(fresh);
        is_cancelled_ = false;
    }
    return *session_;
}

void shell_state::forget_interrupt()
{
    if (interrupted()) {
        is_cancelled_ = true;
        reset_interrupt();
    }
}

std::string shell_state::place() const
{
    return session_ ? session_->location().host + ':' + session_->working_folder() : "";
}

} // namespace qrftp::cli

#include "help.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <qrftp/trace.hpp>

#include <memory>
#include <utility>

namespace qrftp::cli {

namespace {

/// One line an option: its default in brackets behind the text, no validators.
class help_format : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override
    {
        std::string text = make_description(app) + make_usage(app, std::move(name)) + make_positionals(app);
        for (const char* group : {"Options", "Transfer", "Output", "Connection"}) {
            const auto options = app->get_options([group](const CLI::Option* option) {
                return option->get_group() == group && option->nonpositional();
            });
            text += options.empty() ? "" : make_group(group, false, options);
        }
        return text + make_subcommands(app, mode) + '\n' + make_footer(app);
    }

    /// Operands that say nothing of themselves stand in the usage alone.
    std::string make_positionals(const CLI::App* app) const override
    {
        const CLI::Option* const operands = app->get_option_no_throw("operands");
        const bool speaks = operands == nullptr || !operands->get_description().empty();
        return speaks ? CLI::Formatter::make_positionals(app) : "";
    }

    /// Operands are shown by their type, "URL... [LOCAL]", which CLI11 does not take for a name.
    std::string make_option_name(const CLI::Option* option, bool is_positional) const override
    {
        const std::string name = is_positional ? option->get_type_name() : option->get_name(false, true);
        return name.substr(0, name.find('{')); // What "--proxy" alone stands for is not typed.
    }

    std::string make_option_opts(const CLI::Option* option) const override
    {
        return option->get_positional() || option->get_type_size() == 0 ? "" : " " + option->get_type_name();
    }

    std::string make_option_desc(const CLI::Option* option) const override
    {
        const std::string value = option->get_default_str();
        return option->get_description() + (value.empty() ? "" : " [" + value + "]");
    }

    std::string make_option_usage(const CLI::Option* option) const override { return option->get_type_name(); }
};

} // namespace

void set_up_help(CLI::App& app)
{
    const auto format = std::make_shared<help_format>();
    format->column_width(30);
    app.formatter(format);
    app.set_help_flag("--help", "Show this help");
    app.footer("\"qrftp --help\" explains URLs, passwords and the exit status.");
}

const char* help_footer()
{
    return R"(URLs: ftp://[USER@]HOST[:PORT]/PATH from the login folder, //PATH from the root;
sftp://[USER@]HOST[:PORT]/PATH from the root, /~/PATH from the login folder.
"*", "?" and "[...]" in a PATH of ls, stat, cat, du, find, get, cp, rm and chmod are
wildcards, unless they are percent-encoded or something has exactly that name.

NAME:PATH stands for a URL where "qrftp profile" keeps NAME.

Password: the URL's, --password-file, --password-command, $QRFTP_PASSWORD, ~/.netrc,
else asked for.
SFTP: keys of the SSH agent, of --key and ~/.ssh first; pass phrases from
--pass-phrase-file, $QRFTP_PASSPHRASE, else asked for.

Exit status: 0 success, 2 usage, 3 connection, 4 login, 5 not found on the server,
6 denied by the server, 7 local file, 8 some of several failed, 9 host key or
certificate refused, 10 sync would remove too much, 129 hung up, 130 interrupted,
141 output no longer read, 143 terminated, 1 anything else.

"qrftp SUBCOMMAND --help" describes a subcommand; qrftp(1) all of them, and the JSON.)";
}

std::string version_text()
{
    return "qrftp " QRFTP_VERSION "\n" + versions();
}

} // namespace qrftp::cli

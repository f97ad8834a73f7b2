#include "help.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <curl/curl.h>

#include <algorithm>
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

    std::string make_option_opts(const CLI::Option* option) const override
    {
        return option->get_positional() || option->get_type_size() == 0 ? "" : " " + option->get_type_name();
    }

    std::string make_option_desc(const CLI::Option* option) const override
    {
        const std::string value = option->get_default_str();
        return option->get_description() + (value.empty() ? "" : " [" + value + "]");
    }

    // CLI11 2.4 takes no blank in the name of a positional: ours have an underscore in its place.
    std::string make_option_name(const CLI::Option* option, bool positional) const override
    {
        std::string name = option->get_name(positional, true);
        std::replace(name.begin(), name.end(), '_', positional ? ' ' : '_');
        return name;
    }

    std::string make_option_usage(const CLI::Option* option) const override
    {
        return make_option_name(option, true);
    }
};

} // namespace

void set_up_help(CLI::App& app)
{
    const auto format = std::make_shared<help_format>();
    format->column_width(30);
    app.formatter(format);
    app.set_help_flag("--help", "Print this and end");
    app.footer("\"qrftp --help\" tells of URLs, passwords and the exit status.");
}

const char* help_footer()
{
    return R"(URLs: ftp://[USER@]HOST[:PORT]/PATH from the login folder, //PATH from the root;
sftp://[USER@]HOST[:PORT]/PATH from the root, /~/PATH from the login folder.
"*", "?" and "[" in a PATH of ls, stat, cat, du, get and rm stand for names, unless
something has exactly that name.

Password: the URL's, --password-file, $QRFTP_PASSWORD, ~/.netrc, a key of ~/.ssh (SFTP),
else asked for. Pass phrase: --pass-phrase-file, $QRFTP_PASSPHRASE, else asked for.

Exit status: 0 success, 2 usage, 3 connection, 4 login, 5 missing on the server,
6 denied by the server, 7 local file, 8 some of several failed, 9 host key or
certificate refused, 130 interrupted, 143 terminated, 1 anything else.

"qrftp SUBCOMMAND --help" tells of a subcommand; qrftp(1) of all, and of the JSON.)";
}

std::string version_text()
{
    const auto* curl = curl_version_info(CURLVERSION_NOW);
    const auto or_none = [](const char* text) { return std::string(text == nullptr ? "none" : text); };
    return "qrftp " QRFTP_VERSION "\nlibcurl " + or_none(curl->version) + "\nTLS " +
           or_none(curl->ssl_version) + "\nSSH " + or_none(curl->libssh_version);
}

} // namespace qrftp::cli

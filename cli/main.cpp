#include "local_file.hpp"
#include "progress.hpp"
#include "session.hpp"

#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/ftp/core.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <utility>

#include <unistd.h>

namespace core = zorbel::io::ftp::core;
using fl::i18n::utf8_to_ustring;
using namespace qrftp::cli;

namespace {

volatile std::sig_atomic_t interrupted = 0;

/// Ends the request under way, so that what it left half done is removed; a second interrupt ends the process.
void interrupt(int signal)
{
    interrupted = 1;
    (void)std::signal(signal, SIG_DFL);
}

struct arguments {
    login_options login;
    std::string url;
    std::string local;
    bool text = false;
};

std::string last_segment(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

/// The long form of the folder `path` over SFTP; having it proves that there is such a folder.
std::string list_sftp(core::curl_ptr& connection, const std::string& path)
{
    const std::string folder = core::add_trailing_slash(path.empty() ? "/~" : path);
    auto [code, listing] = core::sftp_is_folder(connection, folder, false);
    if (code != CURLE_OK) {
        foundation::core::except::raise<ZORBEL::io::ftp::ftp::NoSuchDirectory>(folder);
    }
    return std::move(listing);
}

/// Prints what a server sent. On a terminal its control bytes are shown as "?": they are nobody's to send
/// there.
void print(std::string text)
{
    if (isatty(STDOUT_FILENO) != 0) {
        std::replace_if(
            text.begin(), text.end(),
            [](unsigned char byte) { return (byte < ' ' && byte != '\n' && byte != '\t') || byte == '\x7f'; },
            '?');
    }
    std::cout << text;
}

void list(core::curl_ptr& connection, const remote& target)
{
    if (target.sftp) {
        print(list_sftp(connection, target.path));
        return;
    }
    if (!target.path.empty()) {
        core::cd(connection, core::fullurl(connection, target.path, false));
    }
    // An empty path would be sent as a blank, which some servers take for a name.
    print(core::list(connection, "."));
}

void get(core::curl_ptr& connection, const remote& target, const arguments& given)
{
    const std::string name = last_segment(target.path);
    if (name.empty() || name == "." || name == "..") {
        throw usage_error("\"" + given.url + "\" names no file.");
    }
    std::filesystem::path local = given.local.empty() ? name : given.local;
    if (std::filesystem::is_directory(local)) {
        local /= name;
    }
    local_file file(local);
    core::receive_file(connection, utf8_to_ustring(target.path), utf8_to_ustring(file.path().string()),
                       given.text);
    file.commit();
}

void put(core::curl_ptr& connection, const remote& target, const arguments& given)
{
    const std::string name = last_segment(given.local);
    const std::string path = last_segment(target.path).empty() ? target.path + name : target.path;
    core::send_file(connection, utf8_to_ustring(given.local), utf8_to_ustring(path), given.text);
}

void print_folder(core::curl_ptr& connection, const remote& target, std::string folder)
{
    if (!target.path.empty()) {
        if (target.sftp) {
            list_sftp(connection, target.path); // A change of folder alone would not notice that it is missing.
        }
        folder = core::cd(connection, core::fullurl(connection, target.path, false));
    }
    print(folder + '\n');
}

void run(const std::string& command, const arguments& given)
{
    const remote target = parse_url(given.url);
    (void)std::signal(SIGINT, interrupt);
    (void)std::signal(SIGTERM, interrupt);
    core::curl_ptr connection;
    const progress_bar bar(connection, last_segment(command == "put" ? given.local : target.path),
                           &interrupted);
    const std::string login_folder = open(connection, target, given.login);
    if (command == "ls") {
        list(connection, target);
    } else if (command == "get") {
        get(connection, target, given);
    } else if (command == "put") {
        put(connection, target, given);
    } else {
        print_folder(connection, target, login_folder);
    }
}

CLI::App* add_command(CLI::App& app, const std::string& name, const std::string& help, arguments& given)
{
    CLI::App* command = app.add_subcommand(name, help);
    add_login_options(*command, given.login);
    return command;
}

int fail(const std::string& sentence, int status)
{
    std::cout.flush();
    std::cerr << "qrftp: " << (interrupted != 0 ? "Interrupted." : sentence) << '\n';
    return interrupted != 0 ? 128 + SIGINT : status;
}

} // namespace

int main(int argc, char** argv)
try {
    CLI::App app("Lists, fetches and sends files over FTP, FTPS and SFTP.", "qrftp");
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("qrftp " QRFTP_VERSION ", ") + curl_version());
    app.footer("URLs: ftp://[USER@]HOST[:PORT]/PATH (from the login folder; //PATH from the root), "
               "sftp://…/PATH\n(from the root; without PATH the login folder).\n"
               "The password comes from the URL, from $QRFTP_PASSWORD, or is asked for.");
    arguments given;
    add_command(app, "ls", "List a remote folder", given)->add_option("URL", given.url)->required();
    CLI::App* get_command = add_command(app, "get", "Fetch a remote file", given);
    get_command->add_option("URL", given.url)->required();
    get_command->add_option("LOCAL", given.local, "File or folder; else the remote name here");
    CLI::App* put_command = add_command(app, "put", "Send a local file", given);
    put_command->add_option("LOCAL", given.local)->required();
    put_command->add_option("URL", given.url, "Remote file, or folder with a final slash")->required();
    add_command(app, "pwd", "Print the folder that the server reports", given)
        ->add_option("URL", given.url)
        ->required();
    for (CLI::App* command : {get_command, put_command}) {
        command->add_flag("--text", given.text, "Transfer as text, with line ends converted");
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    run(app.get_subcommands().front()->get_name(), given);
    return std::cout.flush() ? 0 : fail("The output could not be written.", 1);
} catch (const usage_error& error) {
    return fail(error.what(), 2);
} catch (const std::exception& error) {
    return fail(error.what(), 1);
}

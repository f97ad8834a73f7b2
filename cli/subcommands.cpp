#include "subcommands.hpp"

#include "commands.hpp"
#include "exit_status.hpp"
#include "output.hpp"
#include "password.hpp"
#include "run_batch.hpp"

#include <zorbel/io/common/file/FileSystem.hpp>
#include <zorbel/io/ftp/core/logger.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <iostream>
#include <map>
#include <sstream>
#include <utility>

#include <unistd.h>

namespace qrftp::cli {

using zorbel::io::common::file::read_whole_file;

namespace {

using words = std::vector<std::string>;

const std::map<std::string, std::uint64_t> rate_units{
    {"k", 1ULL << 10U}, {"m", 1ULL << 20U}, {"g", 1ULL << 30U}};

void settle(command_line& given)
{
    const bool plain =
        !environment("NO_COLOR").value_or("").empty() || environment("TERM").value_or("") == "dumb";
    given.how.colour =
        given.colour == "always" || (given.colour == "auto" && !plain && isatty(STDOUT_FILENO) != 0);
    given.how.progress = isatty(STDERR_FILENO) != 0 && !given.how.quiet && !given.how.verbose;
    if (given.how.verbose) {
        namespace core = zorbel::io::ftp::core;
        core::getLogger().enable_levels(core::level::message | core::level::info);
    }
}

/// Logs in where the URLs point to, and hands their paths to `act`.
void with_urls(command_line& given, const words& urls, const std::function<void(session&, const words&)>& act)
{
    settle(given);
    words paths;
    const url where = parse_urls(urls, paths, given.how);
    session remote = open(where, given.login, given.how);
    act(remote, paths);
}

CLI::App& add(CLI::App& app, command_line& given, const char* name, const char* help, std::function<int()> run)
{
    CLI::App& command = *app.add_subcommand(name, help);
    command.callback([&given, run = std::move(run)] { given.run = run; });
    command.option_defaults()->group("Output");
    command.add_flag("--json", given.how.json, "One JSON object a line");
    command.add_flag("-h,--human", given.how.human, "Sizes as people read them");
    command.add_option("--colour,--color", given.colour, "Colours: auto (at a terminal), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("WHEN")
        ->capture_default_str();
    command.add_flag("-q,--quiet", given.how.quiet, "No progress and no notes");
    command.add_flag("-v,--verbose", given.how.verbose, "The dialogue with the server, and what is done");
    command.option_defaults()->group("Options");
    add_login_options(command, given.login);
    return command;
}

/// A subcommand that takes one or several URLs and hands their paths to `act`.
CLI::App& add_for_urls(CLI::App& app, command_line& given, const char* name, const char* help, bool several,
                       std::function<void(session&, const words&)> act)
{
    CLI::App& command = add(app, given, name, help, [&given, act = std::move(act)] {
        with_urls(given, given.words, act);
        return success;
    });
    command
        .add_option(several ? "URL..." : "URL", given.words,
                    several ? "Remote paths, all on one server" : "Remote path")
        ->required()
        ->expected(1, several ? CLI::detail::expected_max_vector_size : 1);
    return command;
}

void add_dry_run(CLI::App& command, command_line& given)
{
    command.add_flag("--dry-run", given.how.dry_run, "Say what would be done, do nothing");
}

void add_transfer_options(CLI::App& command, command_line& given)
{
    sync_options& how = given.transfer;
    command.option_defaults()->group("Transfer");
    add_dry_run(command, given);
    command.add_option("-j,--jobs", how.jobs, "Connections that work on a folder side by side")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N")
        ->capture_default_str();
    command.add_option("--include", how.include, "In folders, only files that match; may be repeated")
        ->type_name("GLOB")
        ->allow_extra_args(false);
    command.add_option("--exclude", how.exclude, "In folders, nothing that matches; may be repeated")
        ->type_name("GLOB")
        ->allow_extra_args(false);
    command.add_flag("--in-place", how.transfer.in_place, "Write to the target itself, not beside it");
    command.add_flag("-c,--resume", how.transfer.resume, "Complete what an earlier transfer left in place");
    command.add_flag("--no-replace", given.no_replace, "Refuse targets that exist");
    command
        .add_option("--limit-rate", how.transfer.rate_limit, "Bytes per second of each connection; 0: no limit")
        ->transform(CLI::AsNumberWithUnit(rate_units, CLI::AsNumberWithUnit::DEFAULT).description(""))
        ->type_name("N[k|M|G]")
        ->capture_default_str();
    command.add_flag("--follow-links", how.follow_links,
                     "In folders, follow symbolic links, not pass them over");
    command.add_flag("--keep-going", how.keep_going, "In folders, go on behind a failure");
    command.option_defaults()->group("Options");
}

void add_looks(CLI::App& app, command_line& given)
{
    CLI::App& list = add_for_urls(app, given, "ls", "List folders and files", true,
                                  [&](session& remote, const words& paths) {
                                      ls(remote, {paths, given.long_form, given.recursive}, given.how);
                                  });
    list.add_flag("-l,--long", given.long_form, "Mode, owner, group, size and time, too");
    list.add_flag("-R,--recursive", given.recursive, "What is below, too");
    add_for_urls(app, given, "tree", "Print a folder as a tree", false,
                 [&](session& remote, const words& paths) {
                     tree(remote, {paths.front(), given.depth}, given.how);
                 })
        .add_option("--depth", given.depth, "How many levels; 0 for all")
        ->type_name("N")
        ->capture_default_str();
    add_for_urls(app, given, "stat", "Print what is known of files and folders", true,
                 [&](session& remote, const words& paths) { stat(remote, paths, given.how); });
    add_for_urls(app, given, "cat", "Print the content of files", true,
                 [&](session& remote, const words& paths) { cat(remote, paths, given.how); });
    add_for_urls(app, given, "du", "Print the sizes of folders with all that is in them", true,
                 [&](session& remote, const words& paths) { du(remote, paths, given.summarize, given.how); })
        .add_flag("-s,--summarize", given.summarize, "Only the sums of what is named");
    add_for_urls(app, given, "pwd", "Print the folder that the server reports", false,
                 [&](session& remote, const words& paths) {
                     if (!paths.front().empty()) {
                         remote.change_folder(paths.front());
                     }
                     const std::string& folder = remote.working_folder();
                     json object = json::object();
                     add_bytes(object, "path", folder);
                     given.how.json ? print_line(object) : print_line(printable(folder));
                     flush_output();
                 });
    add_for_urls(app, given, "ping", "Connect, log in, and tell of the server", false,
                 [&](session& remote, const words& /*paths*/) { ping(remote, given.count, given.how); })
        .add_option("-c,--count", given.count, "How many round trips, one a second")
        ->check(CLI::PositiveNumber.description(""))
        ->type_name("N")
        ->capture_default_str();
}

int run_mv(command_line& given)
{
    if (is_url(given.words.back())) {
        throw usage_error("The new name is a path on the same server, not a URL.");
    }
    with_urls(given, {given.words.front()}, [&](session& remote, const words& paths) {
        const std::string from = paths.front().substr(0, paths.front().find_last_not_of('/') + 1);
        const std::string& to = given.words.back();
        const std::string beside = to.starts_with('/') ? "" : from.substr(0, from.rfind('/') + 1);
        mv(remote, from, beside + to, given.replace, given.how);
    });
    return success;
}

void add_changes(CLI::App& app, command_line& given)
{
    CLI::App& remove = add_for_urls(
        app, given, "rm", "Remove files and folders", true,
        [&](session& remote, const words& paths) { rm(remote, paths, given.recursive, given.how); });
    remove.add_flag("-r,--recursive", given.recursive, "Folders, too, with all that is in them");
    CLI::App& move = add(app, given, "mv", "Rename or move a file or folder", [&] { return run_mv(given); });
    move.add_option("URL_NEWPATH", given.words, "The new path is absolute, or seen from the old one's folder")
        ->required()
        ->expected(2);
    move.add_flag("-f,--replace", given.replace, "Replace a file that has the new name");
    CLI::App& make =
        add_for_urls(app, given, "mkdir", "Make folders", true, [&](session& remote, const words& paths) {
            mkdir(remote, paths, given.parents, given.how);
        });
    make.add_flag("-p,--parents", given.parents, "Folders above, too; one that exists is no error");
    CLI::App& remove_folder =
        add_for_urls(app, given, "rmdir", "Remove empty folders", true,
                     [&](session& remote, const words& paths) { rmdir(remote, paths, given.how); });
    for (CLI::App* command : {&remove, &move, &make, &remove_folder}) {
        add_dry_run(*command, given);
    }
}

transfer_arguments transfer_of(const command_line& given)
{
    transfer_arguments what;
    what.recursive = given.recursive;
    what.tree = given.transfer;
    what.tree.transfer.replace = !given.no_replace;
    return what;
}

int run_get(command_line& given)
{
    transfer_arguments what = transfer_of(given);
    words urls = given.words;
    if (urls.size() > 1 && !is_url(urls.back())) {
        what.target = urls.back();
        urls.pop_back();
    }
    with_urls(given, urls, [&](session& remote, const words& paths) {
        what.sources = paths;
        get(remote, what, given.how);
    });
    return success;
}

int run_put(command_line& given)
{
    transfer_arguments what = transfer_of(given);
    what.sources.assign(given.words.begin(), given.words.end() - 1);
    with_urls(given, {given.words.back()}, [&](session& remote, const words& paths) {
        what.target = paths.front();
        put(remote, what, given.how);
    });
    return success;
}

int run_sync(command_line& given)
{
    const bool fetches = is_url(given.words.front());
    if (fetches == is_url(given.words.back())) {
        throw usage_error("One of the two folders must be a URL, and the other one local.");
    }
    sync_arguments what{given.words[fetches ? 1 : 0], "", fetches ? direction::fetch : direction::send,
                        given.transfer};
    what.options.transfer.replace = !given.no_replace;
    what.options.transfer.keep_time = !given.no_keep_time;
    with_urls(given, {given.words[fetches ? 0 : 1]}, [&](session& remote, const words& paths) {
        what.remote = paths.front();
        sync(remote, what, given.how);
    });
    return success;
}

int run_shell(command_line& given)
{
    const bool file = !given.batch.empty() && given.batch != "-";
    std::istringstream lines(file ? read_whole_file(given.batch) : "");
    int status = success;
    with_urls(given, given.words, [&](session& remote, const words& paths) {
        if (!paths.front().empty()) {
            remote.change_folder(paths.front());
        }
        std::istream& input = file ? static_cast<std::istream&>(lines) : std::cin;
        status = given.batch.empty() ? shell(remote, given.how) : run_batch(remote, input, given.how);
    });
    return status;
}

void add_transfers(CLI::App& app, command_line& given)
{
    constexpr int any_number = CLI::detail::expected_max_vector_size;
    CLI::App& fetch = add(app, given, "get", "Fetch files and folders", [&] { return run_get(given); });
    fetch.add_option("URL..._[LOCAL]", given.words, "Remote paths; local file or folder, else here")
        ->required()
        ->expected(1, any_number);
    CLI::App& send = add(app, given, "put", "Send files and folders", [&] { return run_put(given); });
    send.add_option("LOCAL..._URL", given.words, "Local paths; remote file, or folder to put them in")
        ->required()
        ->expected(2, any_number);
    for (CLI::App* command : {&fetch, &send}) {
        add_transfer_options(*command, given);
        command->add_flag("-r,--recursive", given.recursive, "Folders, too, with all that is in them");
        command->add_flag("-t,--keep-time", given.transfer.transfer.keep_time, "Keep the modification times");
    }
    CLI::App& both = add(app, given, "sync", "Bring a folder up to date", [&] { return run_sync(given); });
    both.add_option("SOURCE_DEST", given.words, "Two folders; one of them is a URL")->required()->expected(2);
    add_transfer_options(both, given);
    both.add_flag("--delete", given.transfer.remove_extra, "Remove what the source does not have");
    both.add_flag("--no-keep-time", given.no_keep_time, "Do not keep the modification times");
    CLI::App& talk = add(app, given, "shell", "Type commands", [&] { return run_shell(given); });
    talk.add_option("URL", given.words, "Server, and folder to begin in")->required()->expected(1);
    talk.add_option("--batch", given.batch,
                    "Run the lines of a file, up to the first that fails; - is the input")
        ->type_name("FILE");
}

} // namespace

void add_subcommands(CLI::App& app, command_line& given)
{
    add_looks(app, given);
    add_transfers(app, given);
    add_changes(app, given);
}

} // namespace qrftp::cli

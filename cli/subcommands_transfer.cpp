#include "commands.hpp"
#include "exit_status.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <algorithm>
#include <map>

namespace qrftp::cli {

namespace {

const std::map<std::string, std::uint64_t> rate_units{
    {"k", 1ULL << 10U}, {"m", 1ULL << 20U}, {"g", 1ULL << 30U}};

void add_transfer_options(CLI::App& command, command_line& line)
{
    sync_options& options = line.transfer;
    command.option_defaults()->group("Transfer");
    add_dry_run(command, line);
    command.add_option("-j,--jobs", options.jobs, "Connections to use side by side; else as many as help")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N");
    add_patterns(command, "--include", options.include, "In folders, only files that match; may be repeated");
    add_patterns(command, "--exclude", options.exclude, "In folders, nothing that matches; may be repeated");
    command.add_flag("--in-place", options.transfer.in_place,
                     "Write to the target itself, not to a temporary name");
    command.add_flag("-c,--resume", options.transfer.resume, "Complete what an earlier transfer left in place");
    command.add_flag("--no-replace", line.no_replace, "Refuse targets that exist");
    command.add_option("--limit-rate", options.transfer.rate_limit, "Bytes per second; 0: no limit")
        ->transform(CLI::AsNumberWithUnit(rate_units, CLI::AsNumberWithUnit::DEFAULT).description(""))
        ->type_name("N[k|M|G]")
        ->capture_default_str();
    command.add_flag("--fsync", options.transfer.sync, "Wait until the storage has each file");
    command.add_flag("-p,--preserve", line.preserve, "Keep modification times and permissions");
    command.add_option("--max-depth", options.max_depth, "How deep folders may be nested")
        ->type_name("N")
        ->capture_default_str();
    command.add_flag("--follow-links", options.follow_links, "In folders, follow symbolic links of the source");
    command.add_flag("--keep-going", options.keep_going, "In folders, continue after errors");
    command.option_defaults()->group("Options");
}

/// The options of each file, as several options of the command line make them.
transfer_options file_options(const command_line& line, bool keep_time)
{
    transfer_options options = line.transfer.transfer;
    options.replace = !line.no_replace;
    options.jobs = std::max(line.transfer.jobs, 1U);
    options.keep_time = keep_time || line.preserve;
    options.keep_mode = line.preserve;
    return options;
}

transfer_arguments transfer_of(const command_line& line)
{
    transfer_arguments arguments;
    arguments.recursive = line.recursive;
    arguments.tree = line.transfer;
    arguments.tree.transfer = file_options(line, line.transfer.transfer.keep_time);
    return arguments;
}

int run_get(command_line& line)
{
    transfer_arguments arguments = transfer_of(line);
    std::vector<std::string> texts = line.words;
    if (texts.size() > 1 && !is_url(texts.back())) {
        arguments.target = texts.back();
        texts.pop_back();
    }
    with_urls(line, texts, [&](session& remote, const std::vector<url>& urls) {
        arguments.sources = patterns_of(urls);
        get(remote, arguments, line.options);
    });
    return success;
}

int run_put(command_line& line)
{
    transfer_arguments arguments = transfer_of(line);
    arguments.sources.assign(line.words.begin(), line.words.end() - 1);
    with_urls(line, {line.words.back()}, [&](session& remote, const std::vector<url>& urls) {
        arguments.target = urls.front().path;
        put(remote, arguments, line.options);
    });
    return success;
}

int run_sync(command_line& line)
{
    const bool fetches = is_url(line.words.front());
    if (fetches == is_url(line.words.back())) {
        throw usage_error("One of the two folders must be a URL, and the other one local.");
    }
    sync_arguments arguments{line.words[fetches ? 1 : 0], "", fetches ? direction::fetch : direction::send,
                             line.transfer, line.clean_up};
    arguments.options.transfer = file_options(line, !line.no_keep_time);
    with_urls(line, {line.words[fetches ? 0 : 1]}, [&](session& remote, const std::vector<url>& urls) {
        arguments.remote = urls.front().path;
        sync(remote, arguments, line.options);
    });
    return success;
}

} // namespace

void add_transfer_subcommands(CLI::App& app, command_line& line)
{
    CLI::App& fetch =
        add_subcommand(app, line, "get", "Fetch files and folders", [&] { return run_get(line); });
    add_operands(fetch, line, "URL... [LOCAL]", "Remote paths; local file or folder, else here", 1, any_number);
    CLI::App& send = add_subcommand(app, line, "put", "Send files and folders", [&] { return run_put(line); });
    add_operands(send, line, "LOCAL... URL", "Local paths; remote file, or folder to put them in", 2,
                 any_number);
    for (CLI::App* command : {&fetch, &send}) {
        add_transfer_options(*command, line);
        command->add_flag("-r,--recursive", line.recursive, "Folders too, with all that is in them");
        command->add_flag("-t,--keep-time", line.transfer.transfer.keep_time, "Keep the modification times");
    }
    CLI::App& both =
        add_subcommand(app, line, "sync", "Bring a folder up to date", [&] { return run_sync(line); });
    add_operands(both, line, "SOURCE DEST", "Two folders; one of them is a URL", 2, 2);
    add_transfer_options(both, line);
    both.add_flag("--delete", line.transfer.remove_extra, "Remove what the source does not have");
    both.add_flag("--force", line.transfer.force, "Remove even where the source is empty");
    both.add_option("--max-delete", line.transfer.max_removals, "Change nothing if more would be removed")
        ->type_name("N");
    both.add_flag("--clean-up", line.clean_up,
                  "Also remove what broken-off transfers left in both folders a day ago");
    both.add_flag("--no-keep-time", line.no_keep_time, "Do not keep the modification times");
}

} // namespace qrftp::cli

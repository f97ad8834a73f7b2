#include "subcommands_transfer.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "subcommand.hpp"
#include "subcommands.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <algorithm>
#include <chrono>
#include <iterator>

namespace qrftp::cli {

namespace {

/// The options of each file, as several options of the command line make them.
transfer_options file_options(const command_line& line, bool keep_time)
{
    transfer_options options = line.transfer.transfer;
    options.replace = !line.no_replace;
    options.retry_delay = std::chrono::milliseconds(static_cast<std::int64_t>(line.retry_delay * 1000));
    options.jobs = std::max(line.transfer.jobs, 1U);
    options.keep_time = keep_time || line.preserve;
    options.keep_mode = line.preserve;
    return options;
}

int run_get(command_line& line, bool several)
{
    transfer_arguments arguments = transfer_of(line);
    std::vector<std::string> texts = line.words;
    if (!several && texts.size() > 1 && (is_shell(line) || !is_url(texts.back()))) {
        arguments.target = local_name(line, texts.back());
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
    const bool has_target = !is_shell(line) || line.words.size() > 1; // else the working folder
    const auto target = line.words.end() - (has_target ? 1 : 0);
    std::transform(line.words.begin(), target, std::back_inserter(arguments.sources),
                   [&](const std::string& word) { return local_name(line, word); });
    with_urls(line, {target, line.words.end()}, [&](session& remote, const std::vector<url>& urls) {
        arguments.target = urls.front().path;
        put(remote, arguments, line.options);
    });
    return success;
}

/// Of the shell: what matches goes into the working folder.
int run_mput(command_line& line)
{
    transfer_arguments arguments = transfer_of(line);
    arguments.sources = expand_local(line.patterns);
    with_urls(line, {},
              [&](session& remote, const std::vector<url>&) { put(remote, arguments, line.options); });
    return success;
}

/// Whether an operand of sync is the remote folder: a URL, or in the shell a name behind a colon.
bool is_remote(const command_line& line, std::size_t place)
{
    return is_shell(line) ? line.patterns[place].starts_with(':') : is_url(line.words[place]);
}

int run_sync(command_line& line)
{
    const bool fetches = is_remote(line, 0);
    if (fetches == is_remote(line, 1)) {
        throw usage_error(
            is_shell(line)
                ? "One of the two folders is local, the other one on the server, written with a colon: "
                  "\"sync site :www\" sends, \"sync :www site\" fetches."
                : "One of the two folders must be a URL, and the other one local.");
    }
    if (line.watch && (fetches || line.options.dry_run)) {
        throw usage_error(fetches ? "--watch follows a local folder: name it first, and the URL behind it."
                                  : "--watch and --dry-run do not go together.");
    }
    sync_arguments arguments{local_name(line, line.words[fetches ? 1 : 0]), "",
                             fetches ? direction::fetch : direction::send, line.transfer, line.clean_up};
    arguments.options.transfer = file_options(line, !line.no_keep_time);
    arguments.options.comparison = line.checksum    ? sync_comparison::checksum
                                   : line.size_only ? sync_comparison::size
                                                    : sync_comparison::size_and_time;
    arguments.options.newer = line.keep_newer ? newer_targets::refuse
                              : line.update   ? newer_targets::skip
                                              : newer_targets::replace;
    const std::string remote_word = line.words[fetches ? 0 : 1].substr(is_shell(line) ? 1 : 0);
    with_urls(line, {remote_word}, [&](session& remote, const std::vector<url>& urls) {
        arguments.remote = urls.front().path;
        line.watch ? watch(remote, arguments, line.options) : sync(remote, arguments, line.options);
    });
    return success;
}

/// Not for copies from server to server, which begin anew.
void add_resume(CLI::App& command, command_line& line)
{
    command
        .add_flag("-c,--resume", line.transfer.transfer.resume,
                  "Go on from what an earlier transfer left; keep it when this one fails")
        ->group("Transfer");
}

} // namespace

void add_transfer_options(CLI::App& command, command_line& line)
{
    sync_options& options = line.transfer;
    command.option_defaults()->group("Transfer");
    add_dry_run(command, line);
    command
        .add_option("--progress", line.progress,
                    "Progress on standard error; auto: at a terminal, json: one object per line")
        ->check(CLI::IsMember({"auto", "json", "none"}).description(""))
        ->type_name("auto|json|none")
        ->capture_default_str();
    command
        .add_option("-j,--jobs", options.jobs, "How many connections to use; 0, the default: as many as help")
        ->check(CLI::Range(0, 64).description(""))
        ->type_name("N");
    add_patterns(command, "--include", options.include,
                 "Of folders, copy only files that match; may be repeated");
    add_patterns(command, "--exclude", options.exclude,
                 "Of folders, copy nothing that matches; may be repeated");
    command.add_flag("--in-place", options.transfer.in_place,
                     "Write to the target itself, not to a temporary name");
    command.add_option("--retry", options.transfer.retries, "How often to go on after a lost connection")
        ->type_name("N")
        ->capture_default_str();
    command.add_option("--retry-delay", line.retry_delay, "Pause before the second retry; then it doubles")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    command.add_flag("--verify", options.transfer.verify, "Compare checksums, as the server computes them")
        ->group("Transfer");
    command.add_flag("--no-replace", line.no_replace, "Refuse targets that exist");
    take_bytes(
        *command.add_option("--limit-rate", options.transfer.rate_limit, "Bytes per second; 0: no limit"))
        .capture_default_str();
    command.add_flag("--fsync", options.transfer.sync, "Wait until each file is on the disk");
    command.add_flag("-p,--preserve", line.preserve, "Keep modification times and permissions");
    command.add_option("--max-depth", options.max_depth, "How deep folders may be nested")
        ->type_name("N")
        ->capture_default_str();
    command.add_flag("--follow-links", options.follow_links, "In folders, follow symbolic links of the source");
    command.add_flag("--links", options.copy_links, "In folders, copy symbolic links as links")
        ->excludes("--follow-links");
    command.add_flag("--keep-going", options.keep_going, "In folders, continue after errors");
    command.option_defaults()->group("Options");
}

transfer_arguments transfer_of(const command_line& line)
{
    transfer_arguments arguments;
    arguments.recursive = line.recursive;
    arguments.tree = line.transfer;
    arguments.tree.transfer = file_options(line, line.transfer.transfer.keep_time);
    return arguments;
}

void add_transfer_subcommands(CLI::App& app, command_line& line)
{
    CLI::App& fetch =
        add_subcommand(app, line, "get", "Fetch files and folders", [&] { return run_get(line, false); });
    add_operands(fetch, line, "URL... [LOCAL]",
                 "Remote paths; local file or folder (- for standard output), else here", 1, any_number);
    set_shell_operands(fetch, line, "PATH [LOCAL]");
    CLI::App& send = add_subcommand(app, line, "put", "Send files and folders", [&] { return run_put(line); });
    add_operands(send, line, "LOCAL... URL",
                 "Local paths (- for standard input); remote file, or folder to put them in", 2, any_number);
    set_shell_operands(send, line, "LOCAL [PATH]");
    std::vector<CLI::App*> commands{&fetch, &send};
    if (is_shell(line)) {
        commands.push_back(&add_subcommand(app, line, "mget",
                                           "Fetch several files or folders into the local folder",
                                           [&] { return run_get(line, true); }));
        add_operands(*commands.back(), line, "PATH...", "Remote paths", 1, any_number);
        commands.push_back(&add_subcommand(app, line, "mput",
                                           "Send several files or folders into the remote folder",
                                           [&] { return run_mput(line); }));
        add_operands(*commands.back(), line, "LOCAL...", "Local paths", 1, any_number);
    }
    fetch
        .add_option("--segments", line.transfer.transfer.segments,
                    "Fetch a large file in segments, over so many connections")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N");
    for (CLI::App* command : commands) {
        add_transfer_options(*command, line);
        add_resume(*command, line);
        command->add_flag("-r,--recursive", line.recursive, "Folders too, with all that is in them");
        command->add_flag("-t,--keep-time", line.transfer.transfer.keep_time, "Keep the modification times");
    }
    CLI::App& both =
        add_subcommand(app, line, "sync", "Bring a folder up to date", [&] { return run_sync(line); });
    add_operands(both, line, "SOURCE DEST", "Two folders; one of them is a URL", 2, 2);
    add_transfer_options(both, line);
    add_resume(both, line);
    both.add_flag("--delete", line.transfer.remove_extra, "Remove from DEST what SOURCE does not have");
    both.add_flag("--force", line.transfer.force, "Remove even where the source is empty");
    both.add_option("--max-delete", line.transfer.max_removals, "Change nothing if more would be removed")
        ->type_name("N");
    CLI::Option* const checksum =
        both.add_flag("--checksum", line.checksum, "Compare contents by checksums, not sizes and times");
    both.add_flag("--size-only", line.size_only, "Compare sizes only")->excludes(checksum);
    CLI::Option* const update =
        both.add_flag("--update", line.update, "Leave targets alone that are newer than their source");
    both.add_flag("--no-overwrite-newer", line.keep_newer, "The same, and each is an error")->excludes(update);
    both.add_flag("--clean-up", line.clean_up,
                  "Also remove temporary files of broken transfers from both folders, a day old or more");
    both.add_flag("--watch", line.watch, "Then stay, and send what changes in the local folder");
    both.add_flag("--no-keep-time", line.no_keep_time, "Do not keep the modification times");
}

} // namespace qrftp::cli

#include "subcommands.hpp"

#include "commands.hpp"
#include "environment.hpp"
#include "exit_status.hpp"
#include "output.hpp"
#include "shell.hpp"
#include "shell_commands.hpp"

#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>

#include <algorithm>
#include <cerrno>
#include <map>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

using word_list = std::vector<std::string>;
constexpr int any_number = CLI::detail::expected_max_vector_size;

const std::map<std::string, std::uint64_t> rate_units{
    {"k", 1ULL << 10U}, {"m", 1ULL << 20U}, {"g", 1ULL << 30U}};

/// Settles what depends on the terminal and the environment.
void resolve_settings(command_line& line)
{
    settings& options = line.options;
    const bool plain =
        !environment("NO_COLOR").value_or("").empty() || environment("TERM").value_or("") == "dumb";
    options.colour = line.colour == "always" || (line.colour == "auto" && !plain && isatty(STDOUT_FILENO) != 0);
    options.progress = isatty(STDERR_FILENO) != 0 && !options.quiet && options.verbose == 0;
    if (options.verbose > 0) {
        set_trace(options.verbose == 1 ? trace_level::dialogue : trace_level::debug);
    }
}

word_list paths_of(const std::vector<url>& urls)
{
    word_list paths;
    for (const url& one : urls) {
        paths.push_back(one.path);
    }
    return paths;
}

word_list patterns_of(const std::vector<url>& urls)
{
    word_list patterns;
    for (const url& one : urls) {
        patterns.push_back(one.pattern);
    }
    return patterns;
}

/// Logs in where the URLs point to, and hands them to `act`.
void with_urls(command_line& line, const word_list& texts,
               const std::function<void(session&, const std::vector<url>&)>& act)
{
    resolve_settings(line);
    const std::vector<url> urls = parse_urls(texts);
    session remote = login(urls.front(), line.login, line.options).open();
    act(remote, urls);
}

CLI::App& add(CLI::App& app, command_line& line, const char* name, const char* help, std::function<int()> run)
{
    CLI::App& command = *app.add_subcommand(name, help);
    command.callback([&line, run = std::move(run)] { line.run = run; });
    command.option_defaults()->group("Output");
    command.add_flag("--json", line.options.json, "One JSON object a line");
    command.add_flag("-h,--human", line.options.human, "Sizes with units");
    command.add_option("--colour,--color", line.colour, "Colours: auto (at a terminal), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("WHEN")
        ->capture_default_str();
    command.add_flag("-q,--quiet", line.options.quiet, "No progress and no notes");
    command.add_flag("-v,--verbose", line.options.verbose,
                     "The dialogue with the server, and what is done; -vv: also what the libraries say");
    command.option_defaults()->group("Options");
    add_login_options(command, line.login);
    return command;
}

/// The operands of a subcommand, which its help shows as `shown`. CLI11 takes no blanks and dots in names.
void add_operands(CLI::App& command, command_line& line, const char* shown, const char* help, int least,
                  int most)
{
    command.add_option("operands", line.words, help)->required()->expected(least, most)->type_name(shown);
}

/// A subcommand that takes one or several URLs and hands them to `act`.
CLI::App& add_for_urls(CLI::App& app, command_line& line, const char* name, const char* help, bool several,
                       std::function<void(session&, const std::vector<url>&)> act)
{
    CLI::App& command = add(app, line, name, help, [&line, act = std::move(act)] {
        with_urls(line, line.words, act);
        return success;
    });
    add_operands(command, line, several ? "URL..." : "URL",
                 several ? "Remote paths, all on one server" : "Remote path", 1, several ? any_number : 1);
    return command;
}

void add_dry_run(CLI::App& command, command_line& line)
{
    command.add_flag("--dry-run", line.options.dry_run, "Print what would be done, do nothing");
}

void add_patterns(CLI::App& command, const char* name, word_list& patterns, const char* help)
{
    command.add_option(name, patterns, help)->type_name("GLOB")->allow_extra_args(false);
}

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

void add_inspecting(CLI::App& app, command_line& line)
{
    CLI::App& list = add_for_urls(
        app, line, "ls", "List folders and files", true, [&](session& remote, const std::vector<url>& urls) {
            ls(remote, {patterns_of(urls), line.long_form, line.recursive}, line.options);
        });
    list.add_flag("-l,--long", line.long_form, "Mode, owner, group, size, time and name");
    list.add_flag("-R,--recursive", line.recursive, "The folders below too");
    add_for_urls(app, line, "tree", "Print a folder as a tree", false,
                 [&](session& remote, const std::vector<url>& urls) {
                     tree(remote, {urls.front().path, line.depth}, line.options);
                 })
        .add_option("--depth", line.depth, "How many levels; 0: all")
        ->type_name("N")
        ->capture_default_str();
    add_for_urls(
        app, line, "stat", "Print what is known of files and folders", true,
        [&](session& remote, const std::vector<url>& urls) { stat(remote, patterns_of(urls), line.options); });
    add_for_urls(
        app, line, "cat", "Print the content of files", true,
        [&](session& remote, const std::vector<url>& urls) { cat(remote, patterns_of(urls), line.options); });
    add_for_urls(app, line, "du", "Print the sizes of folders with all that is in them", true,
                 [&](session& remote, const std::vector<url>& urls) {
                     du(remote, patterns_of(urls), line.summarize, line.options);
                 })
        .add_flag("-s,--summarize", line.summarize, "Only the totals of the folders that are named");
}

/// Goes to the folder of a URL that names one.
void enter(session& remote, const url& place)
{
    if (!place.path.empty()) {
        remote.change_folder(place.path);
    }
}

void add_server_commands(CLI::App& app, command_line& line)
{
    add_for_urls(app, line, "pwd", "Print the folder as the server names it", false,
                 [&](session& remote, const std::vector<url>& urls) {
                     enter(remote, urls.front());
                     pwd(remote, line.options);
                 });
    add_for_urls(app, line, "ping", "Connect, log in, and describe the server", false,
                 [&](session& remote, const std::vector<url>&) { ping(remote, line.count, line.options); })
        .add_option("-c,--count", line.count, "How many round trips, one a second")
        ->check(CLI::PositiveNumber.description(""))
        ->type_name("N")
        ->capture_default_str();
}

int run_mv(command_line& line)
{
    if (is_url(line.words.back())) {
        throw usage_error("The new name is a path on the same server, not a URL.");
    }
    with_urls(line, {line.words.front()}, [&](session& remote, const std::vector<url>& urls) {
        const std::string& whole = urls.front().path;
        const std::string from = whole.substr(0, whole.find_last_not_of('/') + 1);
        const std::string& to = line.words.back();
        const std::string beside = to.starts_with('/') ? "" : from.substr(0, from.rfind('/') + 1);
        mv(remote, from, beside + to, line.replace, line.options);
    });
    return success;
}

void add_modifying(CLI::App& app, command_line& line)
{
    CLI::App& remove = add_for_urls(app, line, "rm", "Remove files and folders", true,
                                    [&](session& remote, const std::vector<url>& urls) {
                                        rm(remote, patterns_of(urls), line.recursive, line.options);
                                    });
    remove.add_flag("-r,--recursive", line.recursive, "Folders too, with all that is in them");
    CLI::App& move = add(app, line, "mv", "Rename or move a file or folder", [&] { return run_mv(line); });
    add_operands(move, line, "URL NEWPATH", "The new path is absolute, or seen from the old one's folder", 2,
                 2);
    move.add_flag("-f,--replace", line.replace, "Replace a file that has the new name");
    CLI::App& make = add_for_urls(app, line, "mkdir", "Make folders", true,
                                  [&](session& remote, const std::vector<url>& urls) {
                                      mkdir(remote, paths_of(urls), line.parents, line.options);
                                  });
    make.add_flag("-p,--parents", line.parents, "Those above too; one that exists is no error");
    CLI::App& remove_folder = add_for_urls(
        app, line, "rmdir", "Remove empty folders", true,
        [&](session& remote, const std::vector<url>& urls) { rmdir(remote, paths_of(urls), line.options); });
    for (CLI::App* command : {&remove, &move, &make, &remove_folder}) {
        add_dry_run(*command, line);
    }
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
    word_list texts = line.words;
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

/// A file that is open for reading while this lives.
class open_file {
public:
    explicit open_file(const std::string& name) : descriptor_(::open(name.c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (descriptor_ < 0) {
            throw LocalFileError(name, std::error_code(errno, std::generic_category()));
        }
    }
    ~open_file() { close(descriptor_); }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

int run_shell(command_line& line)
{
    resolve_settings(line);
    const bool has_file = !line.batch.empty() && line.batch != "-";
    const open_file file(has_file ? line.batch : "/dev/null");
    const url server = parse_urls(line.words).front();
    const login way(server, line.login, line.options);
    session remote = way.open();
    enter(remote, server);
    shell_state state{.remote = remote, .options = line.options, .connect = [&way] { return way.open(); }};
    if (line.batch.empty()) {
        return shell(state);
    }
    return run_batch(state, has_file ? file.descriptor() : STDIN_FILENO);
}

void add_transfers(CLI::App& app, command_line& line)
{
    CLI::App& fetch = add(app, line, "get", "Fetch files and folders", [&] { return run_get(line); });
    add_operands(fetch, line, "URL... [LOCAL]", "Remote paths; local file or folder, else here", 1, any_number);
    CLI::App& send = add(app, line, "put", "Send files and folders", [&] { return run_put(line); });
    add_operands(send, line, "LOCAL... URL", "Local paths; remote file, or folder to put them in", 2,
                 any_number);
    for (CLI::App* command : {&fetch, &send}) {
        add_transfer_options(*command, line);
        command->add_flag("-r,--recursive", line.recursive, "Folders too, with all that is in them");
        command->add_flag("-t,--keep-time", line.transfer.transfer.keep_time, "Keep the modification times");
    }
    CLI::App& both = add(app, line, "sync", "Bring a folder up to date", [&] { return run_sync(line); });
    add_operands(both, line, "SOURCE DEST", "Two folders; one of them is a URL", 2, 2);
    add_transfer_options(both, line);
    both.add_flag("--delete", line.transfer.remove_extra, "Remove what the source does not have");
    both.add_flag("--force", line.transfer.force, "Remove even where the source is empty");
    both.add_option("--max-delete", line.transfer.max_removals, "Change nothing if more would be removed")
        ->type_name("N");
    both.add_flag("--clean-up", line.clean_up,
                  "Also remove what broken-off transfers left in the remote folder a day ago");
    both.add_flag("--no-keep-time", line.no_keep_time, "Do not keep the modification times");
    CLI::App& talk = add(app, line, "shell", "Type commands", [&] { return run_shell(line); });
    add_operands(talk, line, "URL", "Server, and folder to begin in", 1, 1);
    talk.add_option("--batch", line.batch,
                    "Run the lines of a file up to the first that fails; -: of the input")
        ->type_name("FILE");
}

} // namespace

void add_subcommands(CLI::App& app, command_line& line)
{
    add_inspecting(app, line);
    add_server_commands(app, line);
    add_transfers(app, line);
    add_modifying(app, line);
}

} // namespace qrftp::cli

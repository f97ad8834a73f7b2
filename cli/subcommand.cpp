#include "subcommand.hpp"

#include "environment.hpp"
#include "exit_status.hpp"

#include <qrftp/glob.hpp>
#include <qrftp/trace.hpp>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <glob.h>
#include <unistd.h>

namespace qrftp::cli {

static_assert(any_number == CLI::detail::expected_max_vector_size);

namespace {

/// "~" at the beginning is the user's home, unless it was quoted.
std::string with_home(const std::string& pattern)
{
    if (pattern != "~" && !pattern.starts_with("~/")) {
        return pattern;
    }
    return glob_escape(expand_home("~").string()) + pattern.substr(1);
}

/// "~" at the beginning is the login folder, unless it was quoted.
std::string with_login_folder(session& remote, const std::string& pattern)
{
    if (pattern != "~" && !pattern.starts_with("~/")) {
        return pattern;
    }
    return glob_escape(remote.server_info().login_folder) + pattern.substr(1);
}

/// The patterns of words, in the order in which they stand on the line. A text that does not is no pattern.
std::vector<std::string> patterns_for(const command_line& line, const std::vector<std::string>& texts)
{
    std::vector<std::string> found;
    auto from = line.words.begin();
    for (const std::string& text : texts) {
        const auto word = std::find(from, line.words.end(), text);
        const bool is_word = word != line.words.end();
        const auto place = static_cast<std::size_t>(word - line.words.begin());
        found.push_back(is_word ? line.patterns[place] : glob_escape(text));
        from = is_word ? word + 1 : from;
    }
    return found;
}

/// What is on an open session, as the parts of its URL.
std::vector<url> names_on(session& remote, const std::vector<std::string>& patterns)
{
    std::vector<url> found;
    for (const std::string& pattern : patterns) {
        const std::string text = glob_unescape(pattern);
        if (is_url(text)) {
            throw usage_error(
                fmt::format("\"{}\" is a URL; commands of the shell take names on the server that "
                            "is open. \"open URL\" opens another one.",
                            escape(without_password(text))));
        }
        url one = remote.location();
        one.pattern = with_login_folder(remote, pattern);
        one.path = glob_unescape(one.pattern);
        found.push_back(std::move(one));
    }
    return found;
}

/// "URL... [LOCAL]" as the shell shows it.
std::string with_paths(std::string shown)
{
    for (std::size_t place = 0; (place = shown.find("URL", place)) != std::string::npos;) {
        shown.replace(place, 3, "PATH");
    }
    return shown;
}

} // namespace

void resolve_settings(command_line& line)
{
    settings& options = line.options;
    const bool plain =
        !environment("NO_COLOR").value_or("").empty() || environment("TERM").value_or("") == "dumb";
    options.colour = line.colour == "always" || (line.colour == "auto" && !plain && isatty(STDOUT_FILENO) != 0);
    const bool shows_lines = isatty(STDERR_FILENO) != 0 && !options.quiet && options.verbose == 0;
    options.progress = line.progress == "json"                  ? progress_style::json
                       : line.progress == "auto" && shows_lines ? progress_style::lines
                                                                : progress_style::none;
    report_as_json(options.json);
    set_trace(options.verbose == 0   ? trace_level::off
              : options.verbose == 1 ? trace_level::dialogue
                                     : trace_level::debug);
}

bool is_shell(const command_line& line)
{
    return static_cast<bool>(line.open_session);
}

std::vector<std::string> paths_of(const std::vector<url>& urls)
{
    std::vector<std::string> paths;
    std::ranges::transform(urls, std::back_inserter(paths), &url::path);
    return paths;
}

std::vector<std::string> patterns_of(const std::vector<url>& urls)
{
    std::vector<std::string> patterns;
    std::ranges::transform(urls, std::back_inserter(patterns), &url::pattern);
    return patterns;
}

void with_urls(command_line& line, const std::vector<std::string>& texts, const url_action& act)
{
    resolve_settings(line);
    if (is_shell(line)) {
        session& open = line.open_session();
        act(open, names_on(open, patterns_for(line, texts.empty() ? std::vector<std::string>{""} : texts)));
        return;
    }
    const std::vector<url> urls = parse_urls(texts);
    session remote = login(urls.front(), line.login, line.options).open();
    act(remote, urls);
}

std::string local_name(const command_line& line, const std::string& word)
{
    return is_shell(line) ? glob_unescape(with_home(patterns_for(line, {word}).front())) : word;
}

std::vector<std::string> expand_local(const std::vector<std::string>& patterns)
{
    std::vector<std::string> names;
    for (const std::string& word : patterns) {
        const std::string pattern = with_home(word);
        if (!has_magic(pattern)) {
            names.push_back(glob_unescape(pattern));
            continue;
        }
        glob_t matches{};
        // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread
        const bool found = ::glob(pattern.c_str(), 0, nullptr, &matches) == 0;
        if (found) {
            names.insert(names.end(), matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
        }
        globfree(&matches);
        if (!found) {
            throw std::runtime_error(fmt::format("No local file matches \"{}\".", escape(glob_unescape(word))));
        }
    }
    return names;
}

std::string remote_name(const command_line& line, const std::string& word)
{
    return is_shell(line)
               ? glob_unescape(with_login_folder(line.open_session(), patterns_for(line, {word}).front()))
               : word;
}

void enter(session& remote, const url& place)
{
    if (!place.path.empty()) {
        remote.change_folder(place.path);
    }
}

CLI::App& add_subcommand(CLI::App& app, command_line& line, const char* name, const char* help,
                         std::function<int()> run)
{
    CLI::App& command = *app.add_subcommand(name, help);
    command.set_help_flag("-h,--help", "Show this help");
    command.callback([&line, run = std::move(run)] { line.run = run; });
    command.option_defaults()->group("Output");
    command.add_flag("--json", line.options.json,
                     "Print JSON, one object per line; failures too, on standard error");
    command.add_option("--colour,--color", line.colour, "Colours; auto: at a terminal")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("auto|always|never")
        ->capture_default_str();
    command.add_flag("-q,--quiet", line.options.quiet, "Print nothing but results and errors");
    command
        .add_flag("-v,--verbose", line.options.verbose,
                  "The dialogue with the server, and what is done; -vv: also what the libraries say")
        ->force_callback(false); // CLI11 2.4 would have every other subcommand set it to 0
    command.option_defaults()->group("Options");
    if (!is_shell(line)) {
        add_login_options(command, line.login);
    }
    return command;
}

void add_operands(CLI::App& command, command_line& line, const char* shown, const char* help, int least,
                  int most)
{
    command.add_option("operands", line.words, help)
        ->required(least > 0)
        ->expected(least, most)
        ->type_name(is_shell(line) ? with_paths(shown) : shown);
}

void set_shell_operands(CLI::App& command, const command_line& line, const std::string& shown)
{
    if (!is_shell(line)) {
        return;
    }
    if (shown.empty()) {
        command.remove_option(command.get_option("operands"));
        return;
    }
    int least = 0;
    int most = 0;
    std::istringstream words(shown);
    for (std::string word; words >> word;) {
        least += word.starts_with('[') ? 0 : 1;
        most = word.find("...") == std::string::npos ? most + 1 : any_number;
    }
    command.get_option("operands")->required(least > 0)->expected(least, most)->type_name(shown);
}

CLI::App& add_for_urls(CLI::App& app, command_line& line, const char* name, const char* help, bool several,
                       url_action act)
{
    CLI::App& command = add_subcommand(app, line, name, help, [&line, act = std::move(act)] {
        with_urls(line, line.words, act);
        return success;
    });
    add_operands(command, line, several ? "URL..." : "URL",
                 several ? "Remote paths, all on one server" : "Remote path", 1, several ? any_number : 1);
    return command;
}

CLI::Option& take_units(CLI::Option& option, const std::map<std::string, std::uint64_t>& units,
                        const char* shown)
{
    // The one that is added last is the first to look at the text.
    const CLI::Validator has_no_sign(
        [](const std::string& text) {
            return text.starts_with('-') ? fmt::format("\"{}\" is less than 0", text) : std::string();
        },
        "");
    return *option.transform(CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::DEFAULT).description(""))
                ->transform(has_no_sign)
                ->type_name(shown);
}

CLI::Option& take_bytes(CLI::Option& option)
{
    return take_units(option, {{"k", 1ULL << 10U}, {"m", 1ULL << 20U}, {"g", 1ULL << 30U}, {"t", 1ULL << 40U}},
                      "N[k|M|G|T]");
}

void add_dry_run(CLI::App& command, command_line& line)
{
    command.add_flag("--dry-run", line.options.dry_run, "Print what would be done, do nothing");
}

void add_human(CLI::App& command, command_line& line)
{
    command.set_help_flag("--help", "Show this help");
    command.option_defaults()->group("Output");
    command.add_flag("-h,--human", line.options.human, "Sizes with units");
    command.option_defaults()->group("Options");
}

void add_patterns(CLI::App& command, const char* name, std::vector<std::string>& patterns, const char* help)
{
    command.add_option(name, patterns, help)->type_name("GLOB")->allow_extra_args(false);
}

} // namespace qrftp::cli

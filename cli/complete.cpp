#include "complete.hpp"

#include "operands.hpp"
#include "parse.hpp"
#include "profiles.hpp"
#include "shell_state.hpp"
#include "subcommand.hpp"
#include "tokenize.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <system_error>
#include <utility>

namespace qrftp::cli {

namespace {

/// The folder in front of a name, with its slash.
std::string folder_of(const std::string& name)
{
    return name.substr(0, name.rfind('/') + 1);
}

std::vector<candidate> command_names(const CLI::App& commands)
{
    std::vector<candidate> found;
    for (const CLI::App* const command : commands.get_subcommands([](const CLI::App*) { return true; })) {
        found.push_back({command->get_name()});
        for (const std::string& alias : command->get_aliases()) {
            found.push_back({alias});
        }
    }
    std::ranges::sort(found, {}, &candidate::name);
    return found;
}

std::vector<candidate> option_names(const CLI::App& command)
{
    std::vector<candidate> found;
    for (const CLI::Option* const option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            found.push_back({"--" + name});
        }
    }
    std::ranges::sort(found, {}, &candidate::name);
    return found;
}

std::vector<candidate> local_names(const std::string& folder)
{
    namespace fs = std::filesystem;
    std::vector<candidate> found;
    std::error_code error;
    for (fs::directory_iterator next(folder.empty() ? "." : folder, error), end; !error && next != end;
         next.increment(error)) {
        std::error_code ignored; // A broken link is no folder.
        found.push_back({next->path().filename().string(),
                         next->is_directory(ignored) ? entry_kind::folder : entry_kind::file});
    }
    std::sort(found.begin(), found.end(),
              [](const candidate& one, const candidate& other) { return one.name < other.name; });
    return found;
}

/// The words of the last command of a line up to the cursor; the last one, which is to be completed, may be
/// empty.
std::vector<token> typed_words(std::string_view line)
{
    token_list found = tokenize(line);
    while (found.next != std::string::npos) {
        found = tokenize(line, found.next);
    }
    if (found.local != std::string::npos) {
        return {};
    }
    if (found.at_new_word) {
        found.tokens.push_back({{}, {}, line.size()});
    }
    return std::move(found.tokens);
}

enum class word_kind {
    nothing,
    command,
    option,
    url, ///< the last that names nothing in a folder
    remote,
    remote_folder,
    marked_remote_folder, ///< behind a colon
    local,
    local_folder
};

bool takes_folders(word_kind kind)
{
    return kind == word_kind::remote_folder || kind == word_kind::marked_remote_folder ||
           kind == word_kind::local_folder;
}

/// What an operand is that the usage shows as `name`.
word_kind kind_of_operand(const std::string& name, const token& typed)
{
    static const std::map<std::string, word_kind> kinds{
        {"COMMAND", word_kind::command},     {"URL", word_kind::url},
        {"PATH", word_kind::remote},         {"NEWPATH", word_kind::remote},
        {"LOCAL", word_kind::local},         {"LOCAL-FOLDER", word_kind::local_folder},
        {"FOLDER", word_kind::remote_folder}};
    if (name == "SOURCE" || name == "DEST") {
        return typed.pattern.starts_with(':') ? word_kind::marked_remote_folder : word_kind::local_folder;
    }
    const auto found = kinds.find(name);
    return found == kinds.end() ? word_kind::nothing : found->second;
}

/// What the last of `words` is to the command that the first one names.
word_kind kind_of_last(const CLI::App& command, const std::vector<token>& words)
{
    std::vector<std::string> texts;
    std::transform(words.begin() + 1, words.end(), std::back_inserter(texts),
                   [](const token& word) { return word.pattern; });
    const std::vector<bool> found = are_operands(command, texts);
    if (!found.back()) {
        return texts.back().starts_with('-') ? word_kind::option : word_kind::local;
    }
    const auto place = static_cast<std::size_t>(std::count(found.begin(), found.end() - 1, true));
    const std::vector<std::string> names = operands(operands_of(command)).next(place);
    return names.empty() ? word_kind::nothing : kind_of_operand(names.front(), words.back());
}

/// The configuration file, when it cannot be used, tells so when the line runs.
std::vector<candidate> profile_names()
try {
    std::vector<candidate> found;
    for (const profile& one : read_profiles().profiles) {
        if (one.name != defaults_name) {
            found.push_back({one.name + ':'});
        }
    }
    return found;
} catch (const std::exception&) {
    return {};
}

std::vector<candidate> names_for(word_kind kind, shell_state& state, const std::string& folder)
{
    switch (kind) {
    case word_kind::nothing:
    case word_kind::option:
        return {};
    case word_kind::command:
        return command_names(*state.commands);
    case word_kind::url:
        return profile_names();
    case word_kind::local:
    case word_kind::local_folder:
        return local_names(folder);
    default:
        return state.names.in(state.remote(), folder);
    }
}

/// A name as it was typed.
struct typed_name {
    std::string marker; ///< ":" and "~/", which lose their meaning where they are quoted
    std::string folder; ///< of the rest, with its slash
    std::string start;  ///< of the name in that folder
    std::string listed_folder;
};

typed_name take_apart(shell_state& state, word_kind kind, const token& word)
{
    if (kind <= word_kind::url) {
        return {"", "", word.text, ""};
    }
    typed_name typed;
    std::string_view pattern = word.pattern;
    if (kind == word_kind::marked_remote_folder) {
        typed.marker = ":";
        pattern.remove_prefix(1);
    }
    if (pattern.starts_with("~/")) {
        typed.marker += "~/";
        const bool local = kind == word_kind::local || kind == word_kind::local_folder;
        typed.listed_folder = local ? local_name(state.defaults, "~/") : remote_name(state.defaults, "~/");
    }
    const std::string rest = word.text.substr(typed.marker.size());
    typed.folder = folder_of(rest);
    typed.start = rest.substr(typed.folder.size());
    typed.listed_folder += typed.folder;
    return typed;
}

std::string common_start(const std::vector<candidate>& all)
{
    const std::string& first = all.front().name;
    std::size_t length = first.size();
    for (const candidate& one : all) {
        const auto differs = std::mismatch(first.begin(), first.end(), one.name.begin(), one.name.end()).first;
        length = std::min(length, static_cast<std::size_t>(differs - first.begin()));
    }
    // Not in the middle of a character.
    while (length > 0 && length < first.size() &&
           (static_cast<unsigned char>(first[length]) & 0xC0U) == 0x80U) {
        --length;
    }
    return first.substr(0, length);
}

} // namespace

const std::vector<candidate>& remote_names::in(session& remote, const std::string& folder)
{
    const auto [place, is_new] = folders_.try_emplace(remote.absolute(folder.empty() ? "." : folder));
    if (is_new) {
        try {
            for (entry& one : remote.list(place->first).entries) {
                place->second.push_back({std::move(one.name), one.kind});
            }
        } catch (const std::exception&) {
            folders_.erase(place);
            throw;
        }
    }
    return place->second;
}

completion complete(shell_state& state, std::string_view line)
{
    const std::vector<token> words = typed_words(line);
    const CLI::App* const command =
        words.size() < 2 ? nullptr : find_subcommand(*state.commands, words.front().text);
    if (words.empty() || (words.size() > 1 && command == nullptr)) {
        return {line.size(), {}, {}};
    }
    const word_kind kind = command == nullptr ? word_kind::command : kind_of_last(*command, words);
    const typed_name typed = take_apart(state, kind, words.back());
    completion found{words.back().start, {}, {}};
    found.candidates =
        kind == word_kind::option ? option_names(*command) : names_for(kind, state, typed.listed_folder);
    std::erase_if(found.candidates, [&](const candidate& one) {
        const bool is_hidden = one.name.front() == '.' && typed.start.empty();
        return !one.name.starts_with(typed.start) || is_hidden ||
               (takes_folders(kind) && one.kind == entry_kind::file);
    });
    if (found.candidates.empty()) {
        return found;
    }
    const entry_kind first = found.candidates.front().kind;
    const std::string word = typed.folder + common_start(found.candidates);
    found.word = kind == word_kind::option ? word : typed.marker + quote(word);
    const bool goes_on = kind == word_kind::url || first == entry_kind::link; // A link may be a folder.
    if (found.candidates.size() == 1 && !goes_on) {
        found.word += first == entry_kind::folder ? '/' : ' ';
    }
    return found;
}

} // namespace qrftp::cli

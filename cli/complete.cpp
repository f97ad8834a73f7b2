#include "complete.hpp"

#include "shell_commands.hpp"
#include "tokenize.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace qrftp::cli {

namespace {

/// The folder in front of a name, with its slash.
std::string folder_of(const std::string& name)
{
    return name.substr(0, name.rfind('/') + 1);
}

std::vector<candidate> command_names()
{
    std::vector<candidate> found;
    for (const shell_command& command : shell_commands()) {
        found.push_back({std::string(command.name)});
    }
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

/// The words of a line up to the cursor; the last one, which is to be completed, may be empty.
std::vector<token> typed_words(std::string_view line)
{
    token_list found = tokenize(line);
    if (found.at_new_word) {
        found.tokens.push_back({{}, {}, line.size()});
    }
    return std::move(found.tokens);
}

/// What the last of `words` is to the command that the first one names; empty where there is nothing to know.
std::optional<char> kind_of_last(const std::vector<token>& words)
{
    if (words.size() == 1) {
        return 'c';
    }
    const shell_command* const command = find_command(words.front().text);
    if (command == nullptr || command->operands.empty()) {
        return std::nullopt;
    }
    const auto place = std::count_if(words.begin() + 1, words.end() - 1, [](const token& word) {
        return word.text.size() < 2 || word.text.front() != '-';
    });
    if (std::cmp_greater_equal(place, command->most)) {
        return std::nullopt;
    }
    return command->operands[std::min(static_cast<std::size_t>(place), command->operands.size() - 1)];
}

std::vector<candidate> names_for(char kind, shell_state& state, const std::string& folder)
{
    switch (kind) {
    case 'c':
        return command_names();
    case 'l':
    case 'L':
        return local_names(folder);
    default:
        return state.names.in(state.remote, folder);
    }
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
    const std::string& last = words.back().text;
    completion found{words.back().start, {}, {}};
    const auto kind = kind_of_last(words);
    if (!kind || line.substr(0, 1) == "!") {
        return found;
    }
    const std::string folder = *kind == 'c' ? std::string() : folder_of(last);
    const std::string start = last.substr(folder.size());
    found.candidates = names_for(*kind, state, folder);
    const bool folders_only = *kind == 'R' || *kind == 'L';
    std::erase_if(found.candidates, [&](const candidate& one) {
        const bool is_hidden = one.name.front() == '.' && start.empty();
        return !one.name.starts_with(start) || is_hidden || (folders_only && one.kind == entry_kind::file);
    });
    if (found.candidates.empty()) {
        return found;
    }
    const entry_kind first = found.candidates.front().kind;
    found.word = quote(folder + common_start(found.candidates));
    if (found.candidates.size() == 1 && first != entry_kind::link) { // A link may be a folder.
        found.word += first == entry_kind::folder ? '/' : ' ';
    }
    return found;
}

} // namespace qrftp::cli

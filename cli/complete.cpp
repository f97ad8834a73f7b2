#include "complete.hpp"

#include "shell_commands.hpp"
#include "words.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace qrftp::cli {

namespace {

/// A line up to the cursor, in words. The last one is not complete: its quotes may be open.
struct typed_line {
    std::vector<std::string> words{{}};
    std::size_t start = 0; ///< of the last word
};

typed_line take_apart(std::string_view line)
{
    typed_line found;
    char quote = '\0';
    for (std::size_t place = 0; place < line.size(); ++place) {
        const char letter = line[place];
        const bool kept = quote == '"'
                              ? place + 1 < line.size() && (line[place + 1] == '"' || line[place + 1] == '\\')
                              : quote == '\0';
        if (letter == '\\' && kept) {
            found.words.back() += line.substr(++place, 1);
        } else if (letter == quote) {
            quote = '\0';
        } else if (quote == '\0' && (letter == '\'' || letter == '"')) {
            quote = letter;
        } else if (quote == '\0' && word_blanks.find(letter) != std::string_view::npos) {
            if (found.start < place) {
                found.words.emplace_back();
            }
            found.start = place + 1;
        } else {
            found.words.back() += letter;
        }
    }
    return found;
}

/// `word` as a line has it.
std::string quoted(const std::string& word)
{
    std::string text;
    for (const char letter : word) {
        const bool is_special = word_blanks.find(letter) != std::string_view::npos || letter == '\'' ||
                                letter == '"' || letter == '\\' ||
                                (text.empty() && (letter == '#' || letter == '!'));
        text += is_special ? std::string{'\\', letter} : std::string(1, letter);
    }
    return text;
}

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

/// What the last of `words` is to the command that the first one names; empty where there is nothing to know.
std::optional<char> kind_of_last(const std::vector<std::string>& words)
{
    if (words.size() == 1) {
        return 'c';
    }
    const shell_command* const command = find_command(words.front());
    if (command == nullptr || command->operands.empty()) {
        return std::nullopt;
    }
    const auto place = std::count_if(words.begin() + 1, words.end() - 1, [](const std::string& word) {
        return word.size() < 2 || word.front() != '-';
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
    const typed_line typed = take_apart(line);
    const std::string& last = typed.words.back();
    completion found{typed.start, {}, {}};
    const auto kind = kind_of_last(typed.words);
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
    found.word = quoted(folder + common_start(found.candidates));
    if (found.candidates.size() == 1 && first != entry_kind::link) { // A link may be a folder.
        found.word += first == entry_kind::folder ? '/' : ' ';
    }
    return found;
}

} // namespace qrftp::cli

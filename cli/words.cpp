#include "words.hpp"

#include "settings.hpp"

#include <string_view>

namespace qrftp::cli {

namespace {

/// Takes the quoted text that begins at `rest`, without its quotes.
std::string take_quoted(std::string_view& rest)
{
    const char quote = rest.front();
    std::string text;
    for (rest.remove_prefix(1); !rest.empty(); rest.remove_prefix(1)) {
        if (rest.front() == quote) {
            rest.remove_prefix(1);
            return text;
        }
        if (quote == '"' && rest.size() > 1 && rest[0] == '\\' && (rest[1] == '"' || rest[1] == '\\')) {
            rest.remove_prefix(1);
        }
        text += rest.front();
    }
    throw usage_error("A quote is not closed.");
}

std::string take_word(std::string_view& rest)
{
    std::string word;
    while (!rest.empty() && word_blanks.find(rest.front()) == std::string_view::npos) {
        if (rest.front() == '\'' || rest.front() == '"') {
            word += take_quoted(rest);
            continue;
        }
        if (rest.front() == '\\') {
            rest.remove_prefix(1);
            if (rest.empty()) {
                throw usage_error("There is nothing behind the last backslash.");
            }
        }
        word += rest.front();
        rest.remove_prefix(1);
    }
    return word;
}

} // namespace

std::vector<std::string> split_words(const std::string& line)
{
    std::vector<std::string> words;
    std::string_view rest = line;
    for (;;) {
        const auto start = rest.find_first_not_of(word_blanks);
        if (start == std::string_view::npos || rest[start] == '#') {
            return words;
        }
        rest.remove_prefix(start);
        words.push_back(take_word(rest));
    }
}

} // namespace qrftp::cli

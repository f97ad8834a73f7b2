// Lines of the shell and of batches.
#include "../cli/settings.hpp"
#include "../cli/words.hpp"
#include "fuzz.hpp"
static void fuzz(std::string_view input)
{
    const std::string text(input);
    std::vector<std::string> words{text}; // a word like others
    try {
        words = qrftp::cli::split_words(text);
    } catch (const qrftp::cli::usage_error&) {
        require(text.find_first_of("'\"\\") != none);
    }
    std::string quoted;
    for (const auto& word : words) {
        quoted += " \"";
        for (const char c : word) (quoted += (c == '"' || c == '\\' ? "\\" : "")) += c;
        quoted += '"';
    }
    require(qrftp::cli::split_words(quoted + " # '") == words);
}

// Lines of the shell and of batches.
#include "../cli/tokenize.hpp"
#include "fuzz.hpp"
#include <qrftp/glob.hpp>
#include <vector>
using namespace qrftp::cli;

static void fuzz(std::string_view input)
{
    const token_list list = tokenize(input);
    std::vector<std::string> words{std::string(input)}; // a word like others
    for (const token& one : list.tokens) {
        require(one.start < input.size());
        require(qrftp::has_magic(one.pattern) || qrftp::glob_unescape(one.pattern) == one.text);
        words.push_back(one.text);
    }
    require(list.end == line_end::complete || input.find_first_of("'\"\\") != none);
    std::string line;
    std::string escaped;
    for (const std::string& word : words) {
        line += " \"";
        for (const char byte : word) {
            line.append(byte == '"' || byte == '\\' ? 1 : 0, '\\').push_back(byte);
        }
        line += '"';
        escaped += ' ' + (word.empty() ? "''" : quote(word));
    }
    for (const std::string& text : {line + " # '", escaped}) {
        const token_list again = tokenize(text);
        require(again.end == line_end::complete && again.tokens.size() == words.size());
        for (std::size_t i = 0; i < words.size(); ++i) {
            require(again.tokens[i].text == words[i] && !qrftp::has_magic(again.tokens[i].pattern));
        }
    }
}

// Globs: a pattern and a path.
#include "fuzz.hpp"
#include <qrftp/tree.hpp>
using qrftp::glob_match;
static void fuzz(std::string_view input)
{
    const std::string pattern = take_line(input), path(input), twice = path + '/' + path;
    const bool matches = glob_match(pattern, path);
    std::string literal;
    for (const char c : path) literal += c == '*' || c == '?' || c == '[' ? std::string{'[', c, ']'} : std::string{c};
    require(glob_match("**", path) && glob_match("*", path) == (path.find('/') == none) && glob_match(literal, path));
    require(pattern.find_first_of("*?[") != none || matches == (pattern == path));
    // Stars for more of a path, and its own text for it, change nothing.
    for (const auto& more : {"**/" + pattern, pattern + "/**", literal + '/' + pattern}) require(!matches || glob_match(more, twice));
}

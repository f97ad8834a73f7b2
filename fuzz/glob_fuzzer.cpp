// Globs: a pattern and a path.
#include "fuzz.hpp"
#include <qrftp/glob.hpp>
using qrftp::glob_match;

static void fuzz(std::string_view input)
{
    const std::string pattern = take_line(input);
    const std::string path(input);
    const std::string twice = path + '/' + path;
    const bool matches = glob_match(pattern, path);
    const std::string literal = qrftp::glob_escape(path);
    require(glob_match("**", path) && glob_match("*", path) == (path.find('/') == none));
    require(glob_match(literal, path) && !qrftp::has_magic(literal) && qrftp::glob_unescape(literal) == path);
    require(qrftp::has_magic(pattern) || matches == (qrftp::glob_unescape(pattern) == path));
    if (matches && !pattern.ends_with('\\')) {
        // Stars for more of a path, and its own text for it, change nothing.
        for (const auto& more : {"**/" + pattern, pattern + "/**", literal + '/' + pattern}) {
            require(glob_match(more, twice));
        }
    }
}

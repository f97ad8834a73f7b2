#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// What separates the words of a line.
inline constexpr std::string_view word_blanks = " \t\r\n\v\f";

/// A word of a command line.
struct token {
    std::string text;      ///< without its quotes
    std::string pattern;   ///< as a pattern for `glob`: what was quoted stands for itself
    std::size_t start = 0; ///< where it begins in the line
};

/// How a line ends.
enum class line_end {
    complete,
    in_quotes,    ///< a quote is not closed
    in_backslash, ///< the last byte is a backslash that quotes nothing
};

struct token_list {
    std::vector<token> tokens;
    line_end end = line_end::complete;
    bool at_new_word = true; ///< the line is empty, or its last byte is a blank outside quotes
};

/// Splits a command line as sh(1) does: blanks separate words; single quotes keep everything, double quotes
/// everything but a backslash before a quote or a backslash; a backslash outside quotes keeps the next byte;
/// "#" at the beginning of a word opens a comment. Nothing is expanded. A word that is not finished is kept as
/// it is.
token_list tokenize(std::string_view line);

/// `word` as a line has it.
std::string quote(std::string_view word);

} // namespace qrftp::cli

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// What separates the words of a line.
inline constexpr std::string_view word_blanks = " \t\r\n\v\f";

/// What separates the commands of a line.
inline constexpr char command_end = ';';

/// A word of a command line.
struct token {
    std::string text; ///< without its quotes
    /// As a pattern for `glob`: a backslash stands before what was quoted and would mean something else. At the
    /// beginning of a word these are also "~" and ":".
    std::string pattern;
    std::size_t start = 0; ///< where it begins in the line
};

/// How a line ends.
enum class line_end {
    complete,
    in_quotes,    ///< a quote is not closed
    in_backslash, ///< the last byte is a backslash that quotes nothing
};

/// One command.
struct token_list {
    bool ignores_failure = false; ///< a "-" stood before it
    /// Where the text behind a "!" begins, which is for the user's own shell and not split.
    std::size_t local = std::string::npos;
    std::vector<token> tokens;
    line_end end = line_end::complete;
    bool at_new_word = true;              ///< nothing was read, or its last byte is a blank outside quotes
    std::size_t next = std::string::npos; ///< where the next command of the line begins, if there is one
};

/// Splits one command of a line, which is looked for from `start` on, as sh(1) does: blanks separate words;
/// single quotes keep everything, double quotes everything but a backslash before a quote or a backslash; a
/// backslash outside quotes keeps the next byte; "#" at the beginning of a word opens a comment; ";" ends the
/// command. Nothing is expanded. A word that is not finished is kept as it is.
token_list tokenize(std::string_view line, std::size_t start = 0);

/// `word` as a line has it.
std::string quote(std::string_view word);

} // namespace qrftp::cli

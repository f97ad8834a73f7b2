#include "tokenize.hpp"

#include <gtest/gtest.h>

using namespace qrftp::cli;

namespace {

/// The tokens' texts and patterns, each "[TEXT|PATTERN]".
std::string shown(const token_list& list)
{
    std::string text;
    for (const token& one : list.tokens) {
        text += '[' + one.text + '|' + one.pattern + ']';
    }
    return text;
}

} // namespace

TEST(Tokenize, SplitsAsTheShellDoes)
{
    const std::pair<const char*, const char*> rows[] = {
        {" \t\r\n", ""},
        {"get  a\tb ", "[get|get][a|a][b|b]"},
        {"# all of it", ""},
        {"a # b", "[a|a]"},
        {"a#b", "[a#b|a#b]"},
        {"'a b' \"c d\" e\\ f", "[a b|a b][c d|c d][e f|e f]"},
        {"a'b'\"c\"d", "[abcd|abcd]"},
        {"'' \"\"", "[|][|]"},
        {R"('a\' "b\"c\d" \')", R"([a\|a\\][b"c\d|b"c\\d]['|'])"},
        {"'\"' \"'\" '#'", "[\"|\"]['|'][#|#]"},
        {R"(* ~ $x \~ ':')", R"([*|*][~|~][$x|$x][~|\~][:|\:])"},
        {"- 'a;b'; c", "[a;b|a;b]"},
        {" !'", ""},
        {R"(a* '*' "?"\[ \*b*)", R"([a*|a*][*|\*][?[|\?\[][*b*|\*b*])"},
    };
    for (const auto& [line, want] : rows) {
        const token_list found = tokenize(line);
        EXPECT_EQ(shown(found), want) << line;
        EXPECT_EQ(found.end, line_end::complete) << line;
    }
}

TEST(Tokenize, KeepsAWordThatIsNotFinished)
{
    for (const char* open : {"'", "a 'b", "\"", "\"a\\\""}) {
        EXPECT_EQ(tokenize(open).end, line_end::in_quotes) << open;
    }
    for (const char* open : {"\\", "a \\"}) {
        EXPECT_EQ(tokenize(open).end, line_end::in_backslash) << open;
    }
    const token_list cut = tokenize("cd 'a b");
    EXPECT_EQ(shown(cut), "[cd|cd][a b|a b]");
    EXPECT_EQ(cut.tokens.back().start, 3U);
    EXPECT_TRUE(tokenize("").at_new_word && tokenize("cd ").at_new_word);
    EXPECT_FALSE(cut.at_new_word || tokenize("cd\\ ").at_new_word || tokenize("cd ' ").at_new_word);
}

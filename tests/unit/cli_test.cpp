#include "../../cli/columns.hpp"
#include "../../cli/password.hpp"
#include "../../cli/progress_display.hpp"
#include "../../cli/settings.hpp"
#include "../../cli/words.hpp"

#include <gmock/gmock.h>

using namespace qrftp::cli;
using namespace testing;
using strings = std::vector<std::string>;

TEST(Words, AreThoseOfTheShell)
{
    const std::pair<std::string, strings> rows[] = {
        {" \t\r\n", {}},
        {"get  a\tb ", {"get", "a", "b"}},
        {"# all of it", {}},
        {"a # b", {"a"}},
        {"a#b", {"a#b"}},
        {"'a b' \"c d\" e\\ f", {"a b", "c d", "e f"}},
        {"a'b'\"c\"d", {"abcd"}},
        {"'' \"\"", {"", ""}},
        {R"('a\' "b\"c\\d\e" \\ \')", {"a\\", "b\"c\\d\\e", "\\", "'"}},
        {"'\"' \"'\" '#'", {"\"", "'", "#"}},
        {"* ~ $x", {"*", "~", "$x"}}};
    for (const auto& [line, words] : rows)
        EXPECT_EQ(split_words(line), words) << line;
    for (const char* open : {"'", "a 'b", "\"", "\"a\\\"", "\\", "a \\"})
        EXPECT_THROW(split_words(open), usage_error) << open;
}

TEST(Netrc, GivesAPasswordToTheRightHostAndUserOnly)
{
    constexpr auto text = "# machine h login no password no\n"
                          "machine h login a password one\n"
                          "machine h\n\tlogin b\n\tpassword \"two words\"\n"
                          "machine other login a password \"a \\\" b\" account x\n"
                          "machine password login login password machine\n"
                          "default login anonymous password me@";
    const std::array<std::string, 3> rows[] = {{"h", "", "a one"},
                                               {"h", "a", "a one"},
                                               {"h", "b", "b two words"},
                                               {"h", "c", ""},
                                               {"other", "", "a a \" b"},
                                               {"password", "", "login machine"},
                                               {"nowhere", "", "anonymous me@"},
                                               {"nowhere", "a", ""},
                                               {"nowhere", "anonymous", "anonymous me@"}};
    for (const auto& [host, user, want] : rows) {
        const auto found = find_in_netrc(text, host, user);
        EXPECT_EQ(found ? found->login + ' ' + found->password : "", want) << host << ' ' << user;
    }
    for (const char* broken : {"", "machine", "machine h", "machine h login", "machine h password",
                               "login a password b", "machine \"h"}) {
        const auto found = find_in_netrc(broken, "h", "");
        EXPECT_TRUE(!found || found->password.empty()) << broken;
    }
}

TEST(Columns, AreCountedAndKept)
{
    const std::vector<std::pair<std::string, std::size_t>> widths{
        {"", 0}, {"abc", 3}, {"äöü", 3}, {"日本", 4}, {"a\xff\xfe", 3}, {"e\xcc\x81", 1}};
    for (const auto& [text, width] : widths)
        EXPECT_EQ(columns(text), width) << text;
    for (const std::string text : {"", "a", "a long name that ends in .txt", "日本語の長い名前の文書",
                                   "\xff\xff\xff\xff\xff\xff\xff\xff"})
        for (std::size_t width = 1; width < 30; ++width) {
            const std::string shown = shorten(text, width);
            EXPECT_LE(columns(shown), width) << text;
            EXPECT_TRUE(columns(text) > width || shown == text) << text << ' ' << width;
        }
    EXPECT_EQ(shorten("abcdefghij", 5), "ab…ij");
    const std::vector<std::pair<double, std::string>> sizes{
        {0, "0 B"},        {1023, "1023 B"},       {1024, "1.0 KiB"},
        {1536, "1.5 KiB"}, {67108864, "64.0 MiB"}, {5e15, "4.4 PiB"}};
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(readable(bytes), text);
}

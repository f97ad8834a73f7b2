#include "table.hpp"

#include <gtest/gtest.h>

using namespace qrftp::cli;

TEST(Table, CountsColumnsWhateverTheLocale)
{
    const std::pair<std::string, std::size_t> rows[] = {
        {"", 0}, {"abc", 3}, {"äöü", 3}, {"日本", 4}, {"a\xff\xfe", 3}, {"e\xcc\x81", 1}, {"\xe6\x97", 2},
    };
    for (const auto& [text, width] : rows) {
        EXPECT_EQ(text_width(text), width) << text;
    }
}

TEST(Table, ShortensInTheMiddle)
{
    for (const std::string text : {"", "a", "a long name that ends in .txt", "日本語の長い名前の文書",
                                   "\xff\xff\xff\xff\xff\xff\xff\xff"}) {
        for (std::size_t width = 1; width < 30; ++width) {
            const std::string shown = shorten(text, width);
            EXPECT_LE(text_width(shown), width) << text;
            EXPECT_TRUE(text_width(text) > width || shown == text) << text << ' ' << width;
        }
    }
    EXPECT_EQ(shorten("abcdefghij", 5), "ab…ij");
}

TEST(Table, AlignsColumns)
{
    const std::vector<cell> names{{"a"}, {"日本", "<", ">"}, {"ccc"}};
    EXPECT_EQ(in_columns(names, 14), "a     ccc\n<日本>\n");
    EXPECT_EQ(in_columns(names, 0), "a\n<日本>\nccc\n");
    EXPECT_EQ(in_columns({}, 80), "");
    EXPECT_EQ(in_rows({{{"a"}, {"1"}, {"x"}}, {{"bb"}, {"10"}, {"y", "<", ">"}}}, "lr"),
              "a   1 x\nbb 10 <y>\n");
}

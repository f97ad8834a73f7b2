#include <gtest/gtest.h>
#include <qrftp/glob.hpp>

using namespace qrftp;

TEST(Glob, MatchesWholeNamesAndPaths)
{
    using paths = std::vector<std::string>;
    const std::tuple<const char*, paths, paths> rows[] = {
        {"ab", {}, {"a"}},
        {"*", {"", "abc"}, {"a/b"}},
        {"*.txt", {"a.txt", ".txt"}, {"a.txt.gz"}},
        {"a*b*c", {"aXbYbZc"}, {"aXbYbZ"}},
        {"?", {"a"}, {"/", ""}},
        {"a/*", {"a/b"}, {"a/b/c"}},
        {"a/**", {"a/b/c"}, {}},
        {"**/c", {"a/b/c", "c"}, {"abc"}},
        {"a/**/z", {"a/z", "a/b/c/z"}, {"az"}},
        {"**/b/*.o", {"a/b/x/b/c.o"}, {}},
        {"*/b/**", {"a/b/c/d"}, {}},
        {"[!abc]", {"d"}, {}},
        {"[^abc]", {}, {"a"}},
        {"[a-c]x", {"bx"}, {"dx"}},
        {"[]]", {"]"}, {}},
        {"[!]]", {}, {"]"}},
        {"[a-]", {"-"}, {}},
        {"a[b", {"a[b"}, {}},
        {"[]", {"[]"}, {}},
        {"\xff*", {"\xff\xfe"}, {}},
        {"[\x7f-\xff]", {"\xe4"}, {"a"}},
        {R"(\*\?\[a])", {"*?[a]"}, {"x?a"}},
        {R"([\]a\-c])", {"]", "-", "a"}, {"b", "\\"}},
        {R"(a\)", {"a\\"}, {"a"}},
    };
    for (const auto& [pattern, matching, others] : rows) {
        for (const std::string& path : matching) {
            EXPECT_TRUE(glob_match(pattern, path)) << pattern << " and " << path;
        }
        for (const std::string& path : others) {
            EXPECT_FALSE(glob_match(pattern, path)) << pattern << " and " << path;
        }
    }
}

TEST(Glob, TakesNoTimeThatGrowsLikeAPower)
{
    std::string stars;
    for (int i = 0; i < 200; ++i) {
        stars += "*a**a";
    }
    EXPECT_FALSE(glob_match(stars + "b", std::string(20000, 'a')));
}

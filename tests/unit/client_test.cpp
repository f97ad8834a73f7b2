#include "../../client/src/names.hpp"
#include "../../client/src/tree_plan.hpp"
#include "../../client/src/utc.hpp"

#include <fstream>
#include <gmock/gmock.h>
#include <qrftp/client.hpp>
#include <regex>

using namespace qrftp;
using namespace std::literals;
using namespace testing;
using foundation::core::except::Catalogue;
using foundation::core::except::Exception;

TEST(Glob, MatchesWholeNamesAndPaths)
{
    using paths = std::vector<std::string>;
    const std::tuple<const char*, paths, paths> rows[] = {{"a", {"a"}, {"ab", ""}},
                                                          {"ab", {}, {"a"}},
                                                          {"*", {"", "abc"}, {"a/b"}},
                                                          {"*.txt", {"a.txt", ".txt"}, {"a.txt.gz"}},
                                                          {"a*b*c", {"aXbYbZc"}, {"aXbYbZ"}},
                                                          {"?", {"a"}, {"/", ""}},
                                                          {"a?c", {"abc"}, {}},
                                                          {"a/*", {"a/b"}, {"a/b/c"}},
                                                          {"a/**", {"a/b/c"}, {}},
                                                          {"**/c", {"a/b/c", "c"}, {"abc"}},
                                                          {"a/**/z", {"a/z", "a/b/c/z"}, {"az"}},
                                                          {"**", {"a/b/c"}, {}},
                                                          {"**/b/*.o", {"a/b/x/b/c.o"}, {}},
                                                          {"*/b/**", {"a/b/c/d"}, {}},
                                                          {"[abc]", {"b"}, {"d"}},
                                                          {"[!abc]", {"d"}, {}},
                                                          {"[^abc]", {}, {"a"}},
                                                          {"[a-c]x", {"bx"}, {"dx"}},
                                                          {"[]]", {"]"}, {}},
                                                          {"[!]]", {}, {"]"}},
                                                          {"[!a]", {}, {"/"}},
                                                          {"[a-]", {"-"}, {}},
                                                          {"a[b", {"a[b"}, {}},
                                                          {"[]", {"[]"}, {}},
                                                          {"\xff*", {"\xff\xfe"}, {}}};
    for (const auto& [pattern, matching, others] : rows) {
        for (const auto& path : matching)
            EXPECT_TRUE(glob_match(pattern, path)) << pattern << " and " << path;
        for (const auto& path : others)
            EXPECT_FALSE(glob_match(pattern, path)) << pattern << " and " << path;
    }
    // Neither kind of star may take time that grows like a power of the length.
    std::string stars;
    for (int i = 0; i < 200; ++i)
        stars += "*a**a";
    EXPECT_FALSE(glob_match(stars + "b", std::string(20000, 'a')));
}

TEST(Url, IsTakenApartAsPeopleWriteIt)
{
    const auto parsed = [](const std::string& text) -> std::string {
        try {
            const url u = url::parse(text);
            return (u.sftp ? "sftp " : "ftp ") + u.host + ' ' + std::to_string(u.port) + ' ' + u.user + '|' +
                   u.password + '|' + u.path + " = " + u.server();
        } catch (const error::InvalidUrl& refused) {
            return std::get<std::string>(refused.message.arguments[0]) + ": " +
                   std::get<std::string>(refused.message.arguments[1]);
        }
    };
    const std::pair<std::string, std::string> rows[] = {
        {"FTP://h/", "ftp h 21 || = ftp://h"},
        {"ftp://h/a/b", "ftp h 21 ||a/b = ftp://h"},
        {"ftp://h//a", "ftp h 21 ||/a = ftp://h"},
        {"ftp://u:p%40%3a@h:2121/%41/", "ftp h 2121 u|p@:|A/ = ftp://h:2121"},
        {"sftp://u@h:22/a", "sftp h 22 u||/a = sftp://h"},
        {"sftp://h", "sftp h 22 || = sftp://h"},
        {"sftp://h/", "sftp h 22 || = sftp://h"},
        {"sftp://h/~", "sftp h 22 || = sftp://h"},
        {"sftp://h/~/a b", "sftp h 22 ||a b = sftp://h"},
        {"sftp://h/~a", "sftp h 22 ||/~a = sftp://h"},
        {"ftp://[::1]:2121/a", "ftp [::1] 2121 ||a = ftp://[::1]:2121"},
        {"ftp://h/a?[b]*#c;type=a/../%ff", "ftp h 21 ||a?[b]*#c;type=a/../\xff = ftp://h"}};
    for (const auto& [text, want] : rows)
        EXPECT_EQ(parsed(text), want) << text;
    for (const std::string_view refused :
         {""sv, "h/a"sv, "http://h/"sv, "ftps://h/"sv, "file:///a"sv, "ftp://"sv, "ftp:///a"sv, "ftp://h:0x/"sv,
          "ftp://h:99999/"sv, "ftp://u:secret%0d@h/"sv, "ftp://u%0a@h/"sv, "ftp://h/%00"sv, "sftp://h/a\n"sv,
          "ftp://h/a\0b"sv, "ftp://h:secret@/"sv})
        EXPECT_THAT(parsed(std::string(refused)), AllOf(HasSubstr(": "), Not(HasSubstr("secret")))) << refused;
}

TEST(Names, AreResolvedWithoutTheServer)
{
    const std::array<std::string, 3> rows[] = {{"/", "", "/"},
                                               {"/a", ".", "/a"},
                                               {"/a", "b", "/a/b"},
                                               {"/a", "/b/", "/b"},
                                               {"/a/b", "..", "/a"},
                                               {"/a", "../../..", "/"},
                                               {"/a", "./b//c/.", "/a/b/c"},
                                               {"/a", "..b/...", "/a/..b/..."},
                                               {"/", "b ", "/b "}};
    for (const auto& [folder, path, want] : rows)
        EXPECT_EQ(names::absolute(folder, path), want) << folder << " and " << path;
    for (const auto& path : {"/a", "/a/b c"})
        EXPECT_EQ(names::join(names::parent(path), names::last(path)), path);
    EXPECT_EQ(names::parent("/") + names::last("/") + names::parent("/a") + names::last("/a/b c"), "///b c");
    EXPECT_NE(names::temporary(), names::temporary());
    EXPECT_EQ(utc_digits(1672542245), "20230101030405");
    EXPECT_EQ(utc_digits(-1), "19691231235959");
}

TEST(Errors, EachHasASentenceThatStandsInTheDocs)
{
    EXPECT_STREQ(Exception(error::Missing("/a\n", answer{550, 21, "550 no \x1b[1m"})).what(),
                 "There is no \"/a\\x0a\" on the server (550 no \\x1b[1m).");
    std::map<std::string, std::string> page, sentences = Catalogue::instance().entries();
    std::erase_if(sentences, [](const auto& message) { return !message.first.starts_with("qrftp:"); });
    std::ifstream file(QRFTP_SOURCE_DIR "/docs/errors.md");
    for (std::string line, identifier; std::getline(file, line);) {
        if (line.starts_with("### "))
            identifier = line.substr(4);
        if (line.starts_with("> ") && identifier.starts_with("qrftp:"))
            page[identifier] += (page[identifier].empty() ? "" : " ") + line.substr(2);
    }
    EXPECT_EQ(page, sentences);
    EXPECT_EQ(sentences.size(), 22U);
}

namespace {

/// "a/ b:3@100 l>" is a folder, a file of 3 bytes from second 100, a link; "@d100" a day, "@m100" a minute, "?"
/// no known zone.
tree_scan scan(const std::string& text)
{
    static const std::regex form("([a-z/]*[a-z])(?:(/)|(>)|:([0-9]+)(?:@([dm]?)([0-9]+)([?]?))?)");
    tree_scan result;
    for (std::sregex_iterator found(text.begin(), text.end(), form), end; found != end; ++found) {
        const auto& part = *found;
        tree_node& node = result.nodes[part[1]];
        if (part[2].matched)
            node.kind = entry_kind::folder;
        if (part[3].matched)
            node.kind = entry_kind::link;
        if (part[4].matched)
            node.size = std::stoul(part[4]);
        if (!part[6].matched)
            continue;
        const auto precision = part[5] == "d"   ? time_precision::day
                               : part[5] == "m" ? time_precision::minute
                                                : time_precision::second;
        node.modified = timestamp{std::stol(part[6]), precision, part[7].length() == 0};
    }
    return result;
}

std::string plan(const tree_scan& from, const tree_scan& to, plan_options how,
                 std::optional<std::int64_t> exact = {})
{
    std::string text, asked;
    const auto ask = [&](const std::string& path) {
        asked += " ?" + path;
        return exact ? std::optional(timestamp{*exact}) : std::nullopt;
    };
    static constexpr const char* what[] = {"+", "", "-", "-/"};
    static constexpr const char* why[] = {"", "", "!newer", "!size", ""};
    for (const tree_action& step : make_plan(from, to, how, ask))
        text += ' ' + (what[static_cast<int>(step.what)] + step.path) + why[static_cast<int>(step.why)];
    return text + asked;
}

} // namespace

TEST(Plan, CopiesWhatDiffersAndRemovesOnlyWhatItKnows)
{
    constexpr plan_options copy{}, update{.update = true}, mirror{.update = true, .remove_extra = true};
    tree_scan nowhere;
    nowhere.there = false;
    EXPECT_EQ(plan(scan("a/ a/b:1 l> o:2"), nowhere, copy), " + +a a/b o");
    EXPECT_EQ(plan(scan("a/ a/b:1@5"), scan("a/ a/b:1@5 x:1"), copy), " a/b");
    const std::string day = "86400", noon = "129600";
    struct row {
        std::string from, to;
        std::optional<std::int64_t> exact;
        std::string steps;
    };
    for (const auto& [from, to, exact, steps] :
         std::vector<row>{{"f:1@100", "", {}, " f"},
                          {"f:1@100", "f:2@900", {}, " f!size"},
                          {"f:1@100", "f:1@100", {}, ""},
                          {"f:1@101", "f:1@100", {}, " f!newer"},
                          {"f:1@100", "f:1@101", {}, ""},
                          {"f:1", "f:1@100", {}, ""},
                          {"f:1@100", "f:1", {}, ""},
                          // The destination's listing is coarse: the server is asked only where that matters.
                          {"f:1@130", "f:1@m120", 120, " f!newer ?f"},
                          {"f:1@130", "f:1@m120", 140, " ?f"},
                          {"f:1@130", "f:1@m120", {}, " ?f"},
                          {"f:1@180", "f:1@m120", {}, " f!newer"},
                          {"f:1@120", "f:1@m120", {}, ""},
                          {"f:1@" + noon, "f:1@d" + day, 129599, " f!newer ?f"},
                          {"f:1@172800", "f:1@d" + day, {}, " f!newer"},
                          {"f:1@" + noon, "f:1@m100000?", 129600, " ?f"},
                          {"f:1@200000", "f:1@m100000?", {}, " f!newer"},
                          {"f:1@40000", "f:1@m100000?", {}, ""},
                          // The source's is.
                          {"f:1@m120", "f:1@130", 131, " f!newer ?f"},
                          {"f:1@m120", "f:1@110", {}, " f!newer"},
                          {"f:1@m120", "f:1@179", {}, ""},
                          {"a/", "a:1", {}, " +a"},
                          {"a/", "a/", {}, ""},
                          {"l>", "", {}, ""}})
        EXPECT_EQ(plan(scan(from), scan(to), update, exact), steps) << from << " to " << to;
    EXPECT_EQ(plan(scan("k/ k/a:1@1"), scan("k/ k/a:1@1 k/x:1 d/ d/e/ d/e/f:1 l>"), update), "");
    EXPECT_EQ(plan(scan("k/ k/a:1@1"), scan("k/ k/a:1@1 k/x:1 d/ d/e/ d/e/f:1 l>"), mirror),
              " -l -k/x -d/e/f -/d/e -/d");
    auto kept = scan("d/ d/e/ d/e/f:1");
    kept.kept = {"d"};
    EXPECT_EQ(plan(scan(""), kept, mirror), " -d/e/f -/d/e");
    auto unread = scan("a:1");
    unread.skipped = {"?"};
    EXPECT_EQ(plan(unread, scan("x:1"), mirror), " a");
    auto failed = scan("a:1");
    failed.failures.push_back({"b", nullptr});
    EXPECT_EQ(plan(failed, scan("x:1"), mirror), " a");
}

#include "profile_edit.hpp"
#include "settings.hpp"

#include <gmock/gmock.h>

#include <tuple>

using namespace qrftp::cli;

namespace {

profile_list parse(const std::string& text)
{
    return parse_profiles("config.toml", text);
}

std::string place(const std::string& url, const std::string& folder, const std::string& word)
{
    const profile_list list = parse("[work]\nurl = '" + url + "'\nfolder = '" + folder + "'\n");
    return url_of(list, *profile_of(list, word), word);
}

} // namespace

TEST(Profiles, APlaceIsSeenFromTheFolderTheRootOrTheLogin)
{
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        {"ftp://h", "", "work:", "ftp://h/"},
        {"ftp://h/a", "", "work:b", "ftp://h/a/b"},
        {"ftp://h//a/", "b%", "work:c", "ftp://h//a/b%25/c"},
        {"ftp://h/a", "", "work:/b", "ftp://h//b"},
        {"ftps://h/a", "/b", "work:~/c", "ftps://h/c"},
        {"sftp://h", "", "work:a", "sftp://h/~/a"},
        {"sftp://h/", "~/a", "work:", "sftp://h/~/a"},
        {"sftp://h/a", "b", "work:c", "sftp://h/a/b/c"},
        {"sftp://h/~/a", "", "work://b", "sftp://h/b"},
        {"sftp://u@h:2/~x", "", "work:y", "sftp://u@h:2/~x/y"},
    };
    for (const auto& [url, folder, word, expected] : rows) {
        EXPECT_EQ(place(url, folder, word), expected) << url << ' ' << folder << ' ' << word;
    }
    EXPECT_EQ(profile_of(parse("[defaults]\n[work]\n"), "defaults:a"), nullptr);
    EXPECT_EQ(profile_of(parse("[work]\n"), "work"), nullptr);
}

TEST(Profiles, AChangeKeepsTheRestOfTheFile)
{
    using enum profile_setting::kind;
    const std::string before = "# top\n[a] # first\nx = 'é' # why\ny = [\n 'one', # 1\n 'two']\n\n[b]\nx = 1";
    const std::tuple<const char*, profile_setting, const char*> rows[] = {
        {"a",
         {"x", {"a\"\n"}, text},
         "# top\n[a] # first\nx = \"a\\\"\\u000A\" # why\ny = [\n 'one', # 1\n 'two']\n\n[b]\nx = 1"},
        {"a", {"y", {}, list}, "# top\n[a] # first\nx = 'é' # why\n\n[b]\nx = 1"},
        {"a",
         {"z", {"true"}, flag},
         "# top\n[a] # first\nx = 'é' # why\ny = [\n 'one', # 1\n 'two']\nz = true\n\n[b]\nx = 1"},
        {"b",
         {"y", {"1", "2"}, list},
         "# top\n[a] # first\nx = 'é' # why\ny = [\n 'one', # 1\n 'two']\n\n[b]\nx = 1\ny = [\"1\", \"2\"]\n"},
        {"c",
         {"x", {"5"}, number},
         "# top\n[a] # first\nx = 'é' # why\ny = [\n 'one', # 1\n 'two']\n\n[b]\nx = 1\n\n[c]\nx = 5\n"},
    };
    for (const auto& [name, wanted, after] : rows) {
        EXPECT_EQ(with_setting(parse(before), name, wanted), after);
    }
    EXPECT_EQ(without_profile(parse(before), "a"), "# top\n[b]\nx = 1");
    for (const char* const text : {"a = {x = 1}", "a.x = 1\n"}) {
        EXPECT_THROW(with_setting(parse(text), "a", {"y", {"1"}, number}), usage_error) << text;
    }
}

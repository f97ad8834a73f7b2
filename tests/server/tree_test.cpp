// Trees to and from real servers.

#include "server_stage.hpp"

#include <gmock/gmock.h>
#include <set>

using namespace support;
using namespace std::chrono_literals;
using namespace testing;
using qrftp::direction;
using qrftp::tree_options;
using qrftp::tree_result;
namespace fs = std::filesystem;
using names = std::multiset<std::string>;

namespace {

class Tree : public ServerTest {};
INSTANTIATE_SERVER_TEST(Tree);

const auto past = std::chrono::floor<std::chrono::seconds>(std::chrono::file_clock::now()) - 10'000h;

void write_old(const fs::path& file, const std::string& content, fs::file_time_type time = past)
{
    write_file(file, content);
    fs::last_write_time(file, time);
}

/// What was done, in whatever order: "+d", a folder was made; "f", a file copied; "-f", something removed.
names steps(const tree_result& of)
{
    static constexpr const char* marks[] = {"+", "", "-", "-"};
    names all;
    for (const auto& each : of.done)
        all.insert(marks[static_cast<int>(each.what)] + each.path);
    return all;
}

names failed(const tree_result& of)
{
    names all;
    for (const auto& each : of.failures)
        all.insert(each.path + ": " + error_of_client([&] { std::rethrow_exception(each.error); }));
    return all;
}

const files plain{{"a", "/"},           {"a/b", "/"},     {"a/b/x", "t/a/b/x"}, {"a/y.txt", "t/a/y.txt"},
                  {"f.txt", "t/f.txt"}, {"g h", "t/g h"}, {"empty", "/"}};
const names all_steps{"+", "+a", "+a/b", "+empty", "a/b/x", "a/y.txt", "f.txt", "g h"};

/// The tree "t" with all that is in `plain`.
void make_plain_tree(const fs::path& in)
{
    for (const char* const name : {"t/a/b/x", "t/a/y.txt", "t/f.txt", "t/g h"})
        write_old(in / name, name);
    fs::create_directory(in / "t/empty");
}

} // namespace

TEST_P(Tree, ArrivesWhole)
{
    make_plain_tree(here_);
    auto s = open();
    EXPECT_EQ(steps(send_tree(s, here_ / "t", "t")), all_steps);
    tree_options several;
    several.jobs = 3;
    EXPECT_EQ(steps(fetch_tree(s, "t", here_ / "k", several)), all_steps);
    EXPECT_EQ(files_in(there_ / "t"), plain);
    EXPECT_EQ(files_in(here_ / "k"), plain);
    EXPECT_REFUSED("NotFound no", fetch_tree(s, "no", here_ / "no"));
    EXPECT_REFUSED("LocalFileError @no", send_tree(s, here_ / "no", "no"));
}

TEST_P(Tree, PassesLinksOverOrFollowsThem)
{
    for (const auto& side : {here_, there_}) {
        make_plain_tree(side);
        fs::create_symlink("f.txt", side / "t/lf");
        fs::create_symlink("a/b", side / "t/ld");
    }
    files followed = plain;
    followed.insert({{"lf", "t/f.txt"}, {"ld", "/"}, {"ld/x", "t/a/b/x"}});
    tree_options follow;
    follow.follow_links = true;
    auto s = open();
    const auto sent = send_tree(s, here_ / "t", "k");
    const auto fetched = fetch_tree(s, "t", here_ / "k");
    send_tree(s, here_ / "t", "l", follow);
    fetch_tree(s, "t", here_ / "l", follow);
    for (const auto& side : {here_, there_}) {
        EXPECT_EQ(files_in(side / "k"), plain);
        EXPECT_EQ(files_in(side / "l"), followed);
    }
    EXPECT_EQ(sent.passed_over.size(), 2U);
    EXPECT_EQ(fetched.passed_over.size(), 2U);

    write_old(here_ / "out/o", "out/o");
    fs::create_directory(here_ / "w");
    fs::create_directory_symlink("../out", here_ / "w/a");
    EXPECT_REFUSED("UnsafeName @w/a", fetch_tree(s, "t", here_ / "w"));
    EXPECT_EQ(files_in(here_ / "out"), (files{{"o", "out/o"}}));
}

TEST_P(Tree, CopiesWhatTheGlobsName)
{
    for (const auto& side : {here_, there_})
        make_plain_tree(side);
    tree_options globs;
    globs.include = {"*.txt"};
    globs.exclude = {"a/**"};
    auto s = open();
    EXPECT_EQ(steps(send_tree(s, here_ / "t", "g", globs)), (names{"+", "f.txt"}));
    EXPECT_EQ(steps(fetch_tree(s, "t", here_ / "g", globs)), (names{"+", "f.txt"}));
    for (const auto& side : {here_, there_})
        EXPECT_EQ(files_in(side / "g"), (files{{"f.txt", "t/f.txt"}}));
}

TEST_P(Tree, GoesOnWhereItIsToldTo)
{
    for (const auto& side : {here_, there_})
        make_plain_tree(side);
    fs::permissions(there_ / "t/a/b", fs::perms::none);
    fs::permissions(there_ / "t/g h", fs::perms::none);
    tree_options go_on;
    go_on.keep_going = true;
    auto s = open();
    EXPECT_REFUSED("PermissionDenied t/a/b", fetch_tree(s, "t", here_ / "x"));
    const auto fetched = fetch_tree(s, "t", here_ / "y", go_on);
    EXPECT_EQ(failed(fetched), (names{"a/b: PermissionDenied", "g h: PermissionDenied"}));
    EXPECT_EQ(
        files_in(here_ / "y"),
        (files{{"a", "/"}, {"a/b", "/"}, {"a/y.txt", "t/a/y.txt"}, {"empty", "/"}, {"f.txt", "t/f.txt"}}));
    fs::permissions(there_ / "t/a/b", fs::perms(0555));
    const auto sent = send_tree(s, here_ / "t", "t", go_on);
    EXPECT_EQ(failed(sent), (names{"a/b/x: PermissionDenied"}));
    EXPECT_EQ(steps(sent), (names{"+", "+a", "+a/b", "+empty", "a/y.txt", "f.txt", "g h"}));
    fs::permissions(there_ / "t/a/b", fs::perms::all);
}

TEST_P(Tree, IsSynchronised)
{
    auto s = open();
    for (const auto way : {direction::send, direction::fetch}) {
        const fs::path from = (way == direction::send ? here_ : there_) / "s";
        const fs::path to = (way == direction::send ? there_ : here_) / "s";
        const auto recent = std::chrono::floor<std::chrono::seconds>(std::chrono::file_clock::now()) - 1h;
        fs::remove_all(from);
        fs::remove_all(to);
        for (const char* const name : {"a/old", "b", "c"})
            write_old(from / name, "1");
        write_old(from / "a/new", "1", recent);
        qrftp::sync_options options;
        options.transfer.keep_time = true;
        options.exclude = {"*.keep"};
        const auto run = [&] { return steps(synchronise(s, here_ / "s", "s", way, options)); };
        EXPECT_EQ(run(), (names{"+", "+a", "a/new", "a/old", "b", "c"}));
        EXPECT_EQ(run(), names());
        EXPECT_EQ(files_in(to), files_in(from));

        write_old(from / "a/old", "2", past + 1s);
        write_old(from / "a/new", "2", recent + 1s);
        write_old(from / "b", "33");
        write_old(from / "d", "4");
        write_old(to / "c", "5", past + 1s);
        write_old(to / "e/f/g", "6");
        write_old(to / "h/x.keep", "7");
        write_old(from / "y.keep", "8");
        names changes{"a/new", "a/old", "b", "d"};
        const files before = files_in(to);
        options.dry_run = true;
        EXPECT_EQ(run(), changes);
        options.remove_extra = true;
        changes.insert({"-e/f/g", "-e/f", "-e"});
        EXPECT_EQ(run(), changes);
        EXPECT_EQ(files_in(to), before);
        options.dry_run = false;
        EXPECT_EQ(run(), changes);
        EXPECT_EQ(run(), names());
        files after = files_in(from);
        after.erase("y.keep");
        after["c"] = "5";
        after.insert({{"h", "/"}, {"h/x.keep", "7"}});
        EXPECT_EQ(files_in(to), after);

        options.max_removals = 1;
        write_old(to / "z1", "1");
        write_old(to / "z2", "1");
        EXPECT_EQ(error_of_client(run), "TooManyRemovals");
        EXPECT_TRUE(fs::exists(to / "z1") && fs::exists(to / "z2"));
        fs::remove_all(from);
        fs::create_directory(from);
        EXPECT_EQ(error_of_client(run), "EmptySource");
        EXPECT_TRUE(fs::exists(to / "c"));
        options.force = true;
        options.max_removals.reset();
        EXPECT_EQ(error_of_client(run), "");
        EXPECT_EQ(files_in(to), (files{{"h", "/"}, {"h/x.keep", "7"}}));
    }
}

TEST_P(Tree, CleansUpWhatTransfersLeft)
{
    const std::string old = "d/.qrftp-0123456789abcdef.part";
    write_old(there_ / old, "1");
    write_old(there_ / ".qrftp-0123456789abcde0.part", "2", fs::file_time_type::clock::now());
    write_old(there_ / "d/f", "3");
    auto s = open();
    EXPECT_THAT(clean_up(s, "."), ElementsAre(EndsWith(old)));
    EXPECT_EQ(files_in(there_), (files{{"d", "/"}, {"d/f", "3"}, {".qrftp-0123456789abcde0.part", "2"}}));
    fs::remove(there_ / ".qrftp-0123456789abcde0.part");
}

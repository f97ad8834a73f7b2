// Trees to and from real servers.

#include "server_stage.hpp"

#include <gmock/gmock.h>
#include <set>

using namespace support;
using namespace std::chrono_literals;
using namespace testing;
using qrftp::direction;
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
    EXPECT_EQ(steps(fetch_tree(s, "t", here_ / "k", {.jobs = 3})), all_steps);
    EXPECT_EQ(files_in(there_ / "t"), plain);
    EXPECT_EQ(files_in(here_ / "k"), plain);
    EXPECT_REFUSED("NotFound no", fetch_tree(s, "no", here_ / "no"));
    EXPECT_REFUSED("LocalFileError @no", send_tree(s, here_ / "no", "no"));
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
    }
}

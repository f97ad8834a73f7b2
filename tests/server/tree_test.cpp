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

} // namespace

TEST_P(Tree, IsSynchronised)
{
    auto s = open();
    for (const auto way : {direction::send, direction::fetch}) {
        const fs::path from = (way == direction::send ? here_ : there_) / "s";
        const fs::path to = (way == direction::send ? there_ : here_) / "s";
        fs::remove_all(from);
        fs::remove_all(to);
        for (const char* const name : {"a/b", "c", "d e"})
            write_old(from / name, "1");
        fs::create_directory(from / "empty");
        qrftp::sync_options options;
        options.transfer.keep_time = true;
        options.remove_extra = true;
        const auto run = [&] { return steps(synchronise(s, here_ / "s", "s", way, options)); };
        EXPECT_EQ(run(), (names{"+", "+a", "+empty", "a/b", "c", "d e"}));
        EXPECT_EQ(run(), names());
        write_old(from / "a/b", "2", past + 1s);
        write_old(from / "c", "33");
        write_old(to / "d e", "4", past + 1s);
        write_old(to / "e/f", "5");
        EXPECT_EQ(run(), (names{"a/b", "c", "-e/f", "-e"}));
        EXPECT_EQ(run(), names());
        EXPECT_EQ(files_in(to), (files{{"a", "/"}, {"a/b", "2"}, {"c", "33"}, {"d e", "4"}, {"empty", "/"}}));
    }
    EXPECT_REFUSED("NotFound no", fetch_tree(s, "no", here_ / "no"));
    EXPECT_REFUSED("LocalFileError @no", send_tree(s, here_ / "no", "no"));
}

// Links on real servers, and in trees. tests/cli/attributes.sh shows rights, times, room and copies between
// servers.

#include "server_stage.hpp"

#include <gmock/gmock.h>

using namespace support;
using namespace testing;
using qrftp::direction;
namespace fs = std::filesystem;

namespace {

class Attributes : public ServerTest {
protected:
    [[nodiscard]] bool openssh() const { return GetParam().name == "openssh"; }
};
INSTANTIATE_SERVER_TEST(Attributes);

} // namespace

TEST_P(Attributes, LinksAreMadeAndRead)
{
    write_file(there_ / "f", "1");
    auto s = open();
    s.make_link("f", "l");
    EXPECT_EQ(content(there_ / "l"), "1");
    const std::string target = s.read_link("l");
    EXPECT_TRUE(openssh() ? target == "f" : fs::equivalent(target, there_ / "f")) << target;
    EXPECT_EQ(s.stat("l").link_target, target);
    EXPECT_REFUSED("AlreadyExists l", s.make_link("x", "l"));
    s.make_link("f", "a b");
    EXPECT_EQ(content(there_ / "a b"), "1");
    EXPECT_REFUSED("Refused f", s.read_link("f"));
    EXPECT_REFUSED("NotFound no", s.read_link("no"));
    s.make_folder("t");
    s.make_link(there_.string(), "t/up");
    s.remove_folder("t", true);
    EXPECT_EQ(content(there_ / "f"), "1") << "the link goes, not what it leads to";
    if (!sftp()) {
        EXPECT_REFUSED("NotSupported h", s.make_hard_link("f", "h"));
        return;
    }
    EXPECT_EQ(fs::read_symlink(there_ / "l"), "f");
    EXPECT_REFUSED("NotFound no", s.make_hard_link("no", "h"));
    s.make_hard_link("f", "h");
    EXPECT_TRUE(fs::equivalent(there_ / "f", there_ / "h"));
}

TEST_P(Attributes, LinksOfTreesStayLinks)
{
    qrftp::sync_options links;
    links.copy_links = true;
    std::vector<std::string> targets{"d", "d/f"};
    if (sftp()) // ProFTPD's listings leave the others out.
        targets.insert(targets.end(), {"no/where", "../..", "/etc/passwd"});
    auto s = open();
    for (const auto way : {direction::fetch, direction::send}) {
        if (way == direction::send && !openssh())
            break; // ProFTPD makes every target absolute, and replaces no link.
        const fs::path from = (way == direction::send ? here_ : there_) / "t";
        const fs::path to = (way == direction::send ? there_ : here_) / "t";
        fs::remove_all(from);
        fs::remove_all(to);
        write_file(from / "d/f", "1");
        for (const std::string& target : targets)
            fs::create_symlink(target, from / ("l" + std::to_string(target.size())));
        const auto run = [&] { return synchronise(s, here_ / "t", "t", way, links).done.size(); };
        EXPECT_EQ(run(), 3 + targets.size());
        EXPECT_TRUE(fs::is_symlink(to / "l1"));
        EXPECT_EQ(run(), 0U);
        fs::remove(to / "l1");
        fs::create_symlink("other", to / "l1");
        EXPECT_EQ(run(), 1U);
        if (openssh()) {
            EXPECT_EQ(files_in(to), files_in(from));
        }
        // What is a folder now does not go through the link of before.
        fs::remove(from / "l1");
        write_file(from / "l1/f", "2");
        EXPECT_EQ(error_of_client(run), "UnsafeName");
        EXPECT_EQ(content(to / "d/f"), "1");
    }
}

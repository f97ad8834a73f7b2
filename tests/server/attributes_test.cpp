// Rights, times, links and room on real servers; links in trees; copies from server to server.

#include "server_stage.hpp"

#include <gmock/gmock.h>

using namespace support;
using namespace testing;
using qrftp::direction;
using qrftp::session;
namespace fs = std::filesystem;

namespace {

const std::chrono::sys_seconds past{std::chrono::seconds(1600000000)};
const fs::perms group_only{0750};

class Attributes : public ServerTest {
protected:
    [[nodiscard]] bool openssh() const { return GetParam().name == "openssh"; }

    /// A login at the other one of the two kinds of servers.
    [[nodiscard]] session open_other() const
    {
        auto all = options();
        all.user = (*servers_)[openssh() ? "USER" : "SSHD_USER"];
        all.password = (*servers_)["PASSWORD"];
        all.private_keys.clear();
        all.tls = qrftp::tls_mode::strict;
        if (!openssh())
            all.private_keys = {(*servers_)["KEY"]};
        const std::string place = openssh() ? "ftp://127.0.0.1:" + (*servers_)["FTP_PORT"]
                                            : "sftp://127.0.0.1:" + (*servers_)["SSHD_PORT"];
        session opened(place, all);
        opened.change_folder("w");
        return opened;
    }
};
INSTANTIATE_SERVER_TEST(Attributes);

} // namespace

TEST_P(Attributes, AreSet)
{
    auto s = open();
    s.send_string("1", "f"); // The server's user owns it.
    s.make_folder("d");
    for (const char* const name : {"f", "d"}) {
        s.set_permissions(name, group_only);
        EXPECT_EQ(fs::status(there_ / name).permissions(), group_only) << name;
    }
    s.set_modification_time("f", past);
    EXPECT_EQ(std::chrono::file_clock::to_sys(fs::last_write_time(there_ / "f")), past);
    EXPECT_REFUSED("NotFound no", s.set_permissions("no", group_only));
    EXPECT_REFUSED("NotFound no", s.set_modification_time("no", past));
    if (openssh()) {
        const auto room = s.space();
        EXPECT_EQ(room.total, fs::space(there_).capacity);
        EXPECT_GT(room.available, 0U);
    }
    if (!sftp()) {
        EXPECT_REFUSED("NotSupported .", s.space());
    }
}

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

TEST_P(Attributes, CopiesGoFromServerToServer)
{
    const std::string big = bytes(3'000'000);
    const qrftp::transfer_options all{.keep_time = true, .keep_mode = true};
    auto s = open();
    auto other = open_other();
    s.send_string(big, "f"); // The server's user owns it.
    s.set_permissions("f", group_only);
    s.set_modification_time("f", past);
    write_file(there_ / "old", "old");
    for (auto& [from, to] : {std::pair<session&, session&>{s, other}, {other, s}, {s, s}}) {
        write_file(there_ / "g", "old");
        copy(from, "f", to, "g", all);
        EXPECT_EQ(content(there_ / "g"), big);
        EXPECT_EQ(fs::status(there_ / "g").permissions(), group_only);
        EXPECT_EQ(std::chrono::file_clock::to_sys(fs::last_write_time(there_ / "g")), past);
        EXPECT_REFUSED("AlreadyExists old", copy(from, "f", to, "old", {.replace = false}));
        EXPECT_REFUSED("NotFound no", copy(from, "no", to, "x"));
        EXPECT_REFUSED("NotFound no", copy(from, "f", to, "no/x"));
        EXPECT_REFUSED("PermissionDenied ~/denied/x", copy(from, "f", to, "../denied/x"));

        for (const char* const name : {"t/a/b", "t/a/c", "t/d", "t/e"})
            write_file(there_ / name, name);
        EXPECT_EQ(copy_tree(from, "t", to, "u").done.size(), 6U);
        EXPECT_EQ(files_in(there_ / "u"), files_in(there_ / "t"));
        fs::remove_all(there_ / "u");
    }
    EXPECT_REFUSED("InvalidOption f", copy(s, "f", s, "f"));
    EXPECT_REFUSED("InvalidOption t/u", copy_tree(s, "t", s, "t/u"));
}

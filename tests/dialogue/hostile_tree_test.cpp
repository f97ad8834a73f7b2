// Trees between a local folder and a server that is hostile, broken or odd: what is on both sides afterwards.
// Nothing is removed, replaced or written outside that should not be.

#include "tree_stage.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace support;
using namespace std::literals;
using namespace testing;

namespace {

const auto denied = answer::reply("550 no");
const std::string temporary = ".qrftp-0123456789abcdef.part";

void keep_going(sync_options& options)
{
    options.keep_going = true;
}
void follow_links(sync_options& options)
{
    options.follow_links = true;
}

const files mine{{"extra", "1"}, {"d", "/"}, {"d/more", "2"}};
const files theirs{{"a", "new"}, {"d", "/"}, {"d/b", "new"}};
files with(files some, const files& more)
{
    some.insert(more.begin(), more.end());
    return some;
}
const std::string listed = "type=file;size=3;modify=20240102030405; a\r\ntype=dir; d\r\n";
const std::string listing = "MLSD " + remote_root;

const auto lost = answer::drop();
const auto busy = answer::reply("450 busy");
const auto not_opened = answer::transfer(0, "226 Transfer done (but failed to open directory).\r\n");
const auto truncated = answer::transfer(whole, "226 Output truncated to 1 matches\r\n");
const auto cut = answer::transfer(10, "426 cut\r\n");
const std::string subfolder = listing + "/d";
const std::string retrieval = "RETR " + remote_root + "/a";
const files linked{{"a", "new"}, {"ln", "-> a"}};
const files link_to_outside{{"ln", "-> ../outside"}};
const files folder_is_a_link{{"d", "-> ../outside"}};
const files half_sent = with(theirs, {{temporary, "part"}});
const files half_there{{"d", "/"}, {"d/" + temporary, "part"}};
const std::string names_that_lead_out =
    "type=dir; ..\r\ntype=file;size=8; ../outside/x\r\ntype=file;size=1; /e\r\n"s +
    "type=dir; d/.\r\ntype=file;size=1; e\0\r\n"s;

const tree_row rows[] = {
    fetching("", theirs, mine).gives(theirs),
    sending("", theirs, mine).gives(theirs),

    // A source that could not be read as a whole.
    fetching("BadLine", theirs, mine)
        .lists(listing, listed + "what?\r\n")
        .gives(with(mine, theirs))
        .incomplete(),
    fetching("BadNames", theirs, mine)
        .lists(listing, listed + names_that_lead_out)
        .gives(with(mine, theirs))
        .incomplete(),
    fetching("Refused", theirs, mine).on(subfolder, denied).throws("PermissionDenied"),
    fetching("RefusedGoingOn", theirs, mine)
        .on(subfolder, denied)
        .with_options(keep_going)
        .gives(with(mine, {{"a", "new"}}))
        .incomplete(),
    fetching("Lost", theirs, mine).on(subfolder, lost).throws("ConnectionLost"),
    fetching("LostGoingOn", theirs, mine)
        .on(subfolder, lost)
        .with_options(keep_going)
        .gives(with(mine, {{"a", "new"}}))
        .incomplete(),

    // A listing that failed is no empty folder.
    fetching("Busy", theirs, mine).on(subfolder, busy).throws("any"),
    fetching("NotOpened", theirs, mine).on(subfolder, not_opened).throws("any"),
    fetching("Truncated", theirs, mine).on(subfolder, truncated).throws("IncompleteListing"),
    fetching("Cut", theirs, mine).on(subfolder, cut).throws("any"),

    // A destination that could not be read as a whole.
    sending("Busy", theirs, mine).on(subfolder, busy).throws("any"),
    sending("RefusedGoingOn", theirs, mine)
        .on(subfolder, denied)
        .with_options(keep_going)
        .gives(with(mine, theirs))
        .incomplete(),
    sending("BadLine", theirs, mine)
        .lists(listing, "type=file;size=1;modify=20240102030405; extra\r\ntype=dir; d\r\nwhat?\r\n")
        .gives(with(mine, theirs))
        .incomplete(),

    // An empty source.
    fetching("Empty", {}, mine).throws("any"),
    sending("Empty", {}, mine).throws("any"),

    // Links are followed in the source, where that is asked for, and never in the destination.
    fetching("LinkThere", theirs, link_to_outside).with_options(follow_links).gives(theirs),
    sending("LinkThere", theirs, link_to_outside).with_options(follow_links).gives(theirs),
    fetching("LinkForFolder", theirs, folder_is_a_link).throws("any"),
    sending("LinkForFolder", theirs, folder_is_a_link).throws("any"),
    fetching("Links", linked, {}).gives({{"a", "new"}}),
    sending("Links", linked, {}).gives({{"a", "new"}}),
    fetching("LinksFollowed", linked, {}).with_options(follow_links).gives({{"a", "new"}, {"ln", "new"}}),
    sending("LinksFollowed", linked, {}).with_options(follow_links).gives({{"a", "new"}, {"ln", "new"}}),

    // Temporary names belong to transfers that run.
    fetching("TemporaryNames", half_sent, half_there).gives(with(theirs, half_there)),
    sending("TemporaryNames", half_sent, half_there).gives(with(theirs, half_there)),

    // One file that cannot be copied.
    fetching("FileRefused", theirs, {{"d", "/"}}).on(retrieval, denied).throws("PermissionDenied"),
    fetching("FileRefusedGoingOn", theirs, {})
        .on(retrieval, denied)
        .with_options(keep_going)
        .gives({{"d", "/"}, {"d/b", "new"}})
        .incomplete(),
    sending("NameRefusedGoingOn", with(theirs, {{"b\nc", "odd"}}), {})
        .with_options(keep_going)
        .gives(theirs)
        .incomplete(),

    // Odd dates and sizes.
    fetching("LateDates", theirs, {{"a", "old!"}})
        .lists(listing, "type=file;size=3;modify=24670101000000; a\r\ntype=dir;modify=00000000000000; d\r\n")
        .gives(theirs),
    fetching("EarlyDates", theirs, {})
        .lists(listing, "type=file;size=3;modify=19491231235959; a\r\ntype=dir; d\r\n")
        .gives(theirs),
    fetching("LargeSizes", theirs, {})
        .lists(listing, "type=file;size=99999999999999999999999; a\r\ntype=dir;size=-1; d\r\n")
        .gives(theirs),
};

} // namespace

class HostileTree : public TestWithParam<tree_row> {};

TEST_P(HostileTree, LeavesBothSidesAsTheyShouldBe)
{
    const tree_row& of = GetParam();
    tree_stage stage(of);
    const files before = stage.destination();
    std::optional<qrftp::tree_result> result;
    const auto error = error_of_client([&] { result = stage.run(); });
    EXPECT_TRUE(of.error == "any" ? !error.empty() : error == of.error) << "threw " << error;
    if (result) {
        EXPECT_EQ(!result->failures.empty() || !result->skipped.empty(), of.is_incomplete);
    }
    EXPECT_EQ(stage.source(), of.source);
    EXPECT_EQ(stage.destination(), of.after.value_or(before)) << "threw " << error;
    stage.expect_nothing_outside();
}

INSTANTIATE_TEST_SUITE_P(, HostileTree, ValuesIn(rows), [](const auto& of) { return of.param.name; });

TEST(HostileTrees, AFileDoesNotEmptyAFolderOfItsName)
{
    for (const auto way : {direction::fetch, direction::send})
        for (const auto& in_the_way : {files{{"n", "/"}, {"n/x", "1"}}, files{{"n", "-> ../outside"}}}) {
            const files source{{"n", ""}};
            const tree_row of =
                way == direction::fetch ? fetching("", source, in_the_way) : sending("", source, in_the_way);
            tree_stage stage(of);
            const auto error = error_of_client([&] { (void)stage.run(); });
            EXPECT_EQ(stage.destination(), error.empty() ? source : in_the_way) << error;
            stage.expect_nothing_outside();
        }
}

TEST(HostileTrees, NothingIsRemovedWhenALocalFolderCannotBeRead)
{
    const tree_row of = sending("", theirs, mine).with_options(keep_going);
    tree_stage stage(of);
    fs::permissions(stage.local() / "d", fs::perms::none);
    const bool root = geteuid() == 0;
    EXPECT_EQ(root ? seteuid(65534) : 0, 0); // whom permissions hold back
    const auto result = stage.run();
    EXPECT_EQ(root ? seteuid(0) : 0, 0);
    fs::permissions(stage.local() / "d", fs::perms(0755));
    EXPECT_EQ(result.failures.size(), 1U);
    EXPECT_EQ(stage.destination(), with(mine, {{"a", "new"}}));
}

TEST(HostileTrees, EndWhereAServerHasFoldersWithoutEnd)
{
    const auto limit = [](sync_options& options) { options.max_depth = 60; };
    const tree_row of = fetching("", {}, mine).lists("MLSD", "type=dir; d\r\n").with_options(limit);
    tree_stage stage(of);
    EXPECT_EQ(error_of_client([&] { (void)stage.run(); }), "UnsafeName");
    EXPECT_EQ(stage.destination(), mine);
}

TEST(HostileTrees, EndWhereLinksGoInCircles)
{
    for (const auto way : {direction::fetch, direction::send}) {
        const files source{{"a", "new"}, {"d", "/"}, {"d/self", "-> ."}, {"up", "-> ../tree"}};
        const tree_row of = (way == direction::fetch ? fetching("", source, {}) : sending("", source, {}))
                                .with_options(follow_links);
        tree_stage stage(of);
        std::optional<qrftp::tree_result> result;
        EXPECT_EQ(error_of_client([&] { result = stage.run(); }), "");
        EXPECT_EQ(stage.destination().at("a"), "new");
        ASSERT_TRUE(result);
        EXPECT_THAT(result->passed_over, Not(IsEmpty())) << "no note";
    }
}

TEST(HostileTrees, DeepLocalFoldersDoNotEndTheProcess)
{
    const tree_row of = sending("", {}, mine);
    tree_stage stage(of);
    // Deeper than a path may be long.
    int folder = open(stage.local().c_str(), O_RDONLY | O_DIRECTORY);
    for (int depth = 0; depth < 3000; ++depth) {
        ASSERT_EQ(mkdirat(folder, "d", 0755), 0);
        const int next = openat(folder, "d", O_RDONLY | O_DIRECTORY);
        close(folder);
        ASSERT_GE(folder = next, 0);
    }
    close(folder);
    EXPECT_NE(error_of_client([&] { (void)stage.run(); }), "");
    EXPECT_EQ(stage.destination(), mine);
    // What removes folders by their paths, or by recursion, cannot remove these.
    EXPECT_EQ(std::system(("rm -rf '" + stage.local().string() + "'").c_str()), 0);
    fs::create_directory(stage.local());
}

TEST(HostileTrees, FoldersAboveTheLoginFolderAreNotRemoved)
{
    client_stage t;
    const files before{{"/home", "/"}, {"/home/u", "/"}, {"/home/u/d", "/"}, {"/home/u/d/x", "1"}};
    t.peer.keep(before);
    auto& client = t.open();
    client.change_folder("d");
    for (const char* const name : {"/", "..", "../..", ".", "/home", "/home/u", "/home/u/d/../../"})
        EXPECT_EQ(error_of_client([&] { client.remove_folder(name, true); }), "PermissionDenied") << name;
    EXPECT_EQ(t.peer.kept(), before);
    EXPECT_EQ(t.sent({"DELE", "RMD", "MLSD"}), "");
}

// Trees between a local folder and a server that is hostile, broken or odd: what is on both sides afterwards.
// Nothing is removed, replaced or written outside that should not be.

#include "tree_stage.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

using namespace support;
using namespace std::literals;
using namespace testing;

namespace {

const std::string temporary = ".qrftp-0123456789abcdef.part";

void keep_going(sync_options& options)
{
    options.keep_going = true;
}
void follow_links(sync_options& options)
{
    options.follow_links = true;
}
void resume(sync_options& options)
{
    options.transfer.resume = true;
}
void resume_in_place(sync_options& options)
{
    options.transfer.resume = options.transfer.in_place = true;
}

const files mine{{"extra", "1"}, {"d", "/"}, {"d/more", "2"}};
const files theirs{{"a", "new"}, {"d", "/"}, {"d/b", "new"}};
files with(files some, const files& more)
{
    some.insert(more.begin(), more.end());
    return some;
}
const files grown_and_cut{{"a", "ol"}, {"d", "/"}, {"d/b", "older"}};
const std::string listed = "type=file;size=3;modify=20240102030405; a\r\ntype=dir; d\r\n";
const std::string listing = "MLSD " + remote_root;

const auto lost = answer::drop();
const auto busy = answer::reply("450 busy");
const auto not_opened = answer::transfer(0, "226 Transfer done (but failed to open directory).\r\n");
const auto truncated = answer::transfer(whole, "226 Output truncated to 1 matches\r\n");
const auto cut = answer::transfer(10, "426 cut\r\n");
const std::string subfolder = listing + "/d";
const files linked{{"a", "new"}, {"ln", "-> a"}};
const files link_to_outside{{"ln", "-> ../outside"}};
const files folder_is_a_link{{"d", "-> ../outside"}};
const files half_sent = with(theirs, {{temporary, "part"}});
const files half_there{{"d", "/"}, {"d/" + temporary, "part"}};
const std::string names_that_lead_out =
    "type=dir; ..\r\ntype=file;size=8; ../outside/x\r\ntype=file;size=1; /e\r\n"s +
    "type=dir; d/.\r\ntype=file;size=1; e\0\r\n"s;

using qrftp::sftp::attributes;
using qrftp::sftp::packet_type;
/// The first answer to READDIR is this one; the honest names follow.
void sends_first(sftp_peer& server, const std::vector<std::pair<std::string, attributes>>& names)
{
    server.intercept = [=, first = true](const sftp_peer::request& asked) mutable {
        const bool is_for_it = asked.type == packet_type::readdir && std::exchange(first, false);
        return is_for_it ? std::optional(name_packet(asked.id, names)) : std::nullopt;
    };
}
void sends_names_that_lead_out(sftp_peer& server)
{
    const attributes file{.size = 8, .permissions = 0100644};
    const attributes folder{.permissions = 0040755};
    sends_first(server,
                {{"..", folder}, {"../outside/x", file}, {"/e", file}, {"d/.", folder}, {"e\0"s, file}});
}
void sends_odd_attributes(sftp_peer& server)
{
    sends_first(server, {{"a", {.size = ~0ULL, .permissions = 0100644, .time = attributes::times{~0U, ~0U}}}});
}
void fails_in_between(sftp_peer& server)
{
    server.intercept = [](const sftp_peer::request& asked) -> std::optional<std::string> {
        if (asked.type != packet_type::readdir)
            return std::nullopt;
        return status_packet(asked.id, qrftp::sftp::status_code::failure);
    };
}
/// Every folder holds another one.
void has_folders_without_end(sftp_peer& server)
{
    server.intercept = [number = 0, listed = std::set<std::string>()](
                           sftp_peer::request asked) mutable -> std::optional<std::string> {
        if (asked.type == packet_type::opendir)
            return handle_packet(asked.id, "d" + std::to_string(++number));
        if (asked.type != packet_type::readdir)
            return std::nullopt;
        if (!listed.emplace(asked.fields.read_string()).second)
            return status_packet(asked.id, qrftp::sftp::status_code::eof);
        return name_packet(asked.id, {{"d", {.permissions = 0040755}}});
    };
}

const tree_row rows[] = {
    fetching("", theirs, mine).gives(theirs),
    sending("", theirs, mine).gives(theirs),

    // What is resumed is what a transfer left, never an older file.
    fetching("Resumed", theirs, grown_and_cut).with_options(resume).gives(theirs),
    sending("Resumed", theirs, grown_and_cut).with_options(resume).gives(theirs),
    fetching("ResumedInPlace", theirs, grown_and_cut).with_options(resume_in_place).gives(theirs),
    sending("ResumedInPlace", theirs, grown_and_cut).with_options(resume_in_place).gives(theirs),

    // A source that could not be read as a whole.
    fetching("BadLine", theirs, mine)
        .lists(listing, listed + "what?\r\n")
        .gives(with(mine, theirs))
        .incomplete(),
    fetching("BadNames", theirs, mine)
        .lists(listing, listed + names_that_lead_out)
        .gives(with(mine, theirs))
        .incomplete(),
    fetching("NamesThatLeadOut", theirs, mine)
        .where(sends_names_that_lead_out)
        .gives(with(mine, theirs))
        .incomplete(),
    fetching("Refused", theirs, mine).refuses("d").throws("PermissionDenied"),
    fetching("RefusedGoingOn", theirs, mine)
        .refuses("d")
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

    fetching("FailedInBetween", theirs, mine).where(fails_in_between).throws("any"),

    // A destination that could not be read as a whole.
    sending("Busy", theirs, mine).on(subfolder, busy).throws("any"),
    sending("RefusedGoingOn", theirs, mine)
        .refuses("d")
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
    fetching("FileRefused", theirs, {{"d", "/"}}).refuses("a").over_ftp().throws("PermissionDenied"),
    fetching("FileRefusedGoingOn", theirs, {})
        .refuses("a")
        .with_options(keep_going)
        .gives({{"d", "/"}, {"d/b", "new"}})
        .incomplete(),

    // Odd dates and sizes.
    fetching("LateDates", theirs, {{"a", "old!"}})
        .lists(listing, "type=file;size=3;modify=24670101000000; a\r\ntype=dir;modify=00000000000000; d\r\n")
        .gives(theirs),
    fetching("EarlyDates", theirs, {})
        .lists(listing, "type=file;size=3;modify=19491231235959; a\r\ntype=dir; d\r\n")
        .gives(theirs),
    fetching("OddAttributes", theirs, {{"a", "old!"}}).where(sends_odd_attributes).gives(theirs),
    fetching("LargeSizes", theirs, {})
        .lists(listing, "type=file;size=99999999999999999999999; a\r\ntype=dir;size=-1; d\r\n")
        .gives(theirs),
};

} // namespace

using row_over = std::tuple<tree_row, url_scheme>;

class HostileTree : public TestWithParam<row_over> {};

TEST_P(HostileTree, LeavesBothSidesAsTheyShouldBe)
{
    const auto& [of, scheme] = GetParam();
    tree_stage stage(of, scheme);
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

std::vector<row_over> rows_of_both()
{
    std::vector<row_over> all;
    for (const auto scheme : {url_scheme::ftp, url_scheme::sftp})
        for (const tree_row& of : rows)
            if (of.is_for(scheme))
                all.emplace_back(of, scheme);
    return all;
}
INSTANTIATE_TEST_SUITE_P(, HostileTree, ValuesIn(rows_of_both()), [](const auto& of) {
    return std::get<0>(of.param).name + (std::get<1>(of.param) == url_scheme::ftp ? "Ftp" : "Sftp");
});

/// Sends or fetches trees, over each protocol.
class HostileTrees : public TestWithParam<std::tuple<direction, url_scheme>> {
protected:
    tree_row row(const files& source, const files& destination) const
    {
        const bool fetches = std::get<0>(GetParam()) == direction::fetch;
        return fetches ? fetching("", source, destination) : sending("", source, destination);
    }
    const url_scheme scheme = std::get<1>(GetParam());
};
INSTANTIATE_TEST_SUITE_P(, HostileTrees,
                         Combine(Values(direction::fetch, direction::send),
                                 Values(url_scheme::ftp, url_scheme::sftp)));

TEST_P(HostileTrees, EndWhereLinksGoInCircles)
{
    const files source{{"a", "new"}, {"d", "/"}, {"d/self", "-> ."}, {"up", "-> ../tree"}};
    tree_stage stage(row(source, {}).with_options(follow_links), scheme);
    std::optional<qrftp::tree_result> result;
    EXPECT_EQ(error_of_client([&] { result = stage.run(); }), "");
    EXPECT_EQ(stage.destination().at("a"), "new");
    ASSERT_TRUE(result);
    EXPECT_THAT(result->passed_over, Not(IsEmpty())) << "no note";
}

TEST(OneHostileTree, NothingIsRemovedWhenALocalFolderCannotBeRead)
{
    const tree_row of = sending("", theirs, mine).with_options(keep_going);
    tree_stage stage(of);
    fs::permissions(stage.t.local, fs::perms(0755));
    fs::permissions(stage.local() / "d", fs::perms::none);
    const bool root = geteuid() == 0;
    EXPECT_EQ(root ? seteuid(65534) : 0, 0); // whom permissions hold back
    const auto result = stage.run();
    EXPECT_EQ(root ? seteuid(0) : 0, 0);
    fs::permissions(stage.local() / "d", fs::perms(0755));
    EXPECT_EQ(result.failures.size(), 1U);
    EXPECT_EQ(stage.destination(), with(mine, {{"a", "new"}}));
}

TEST(OneHostileTree, ANameIsNoCommand)
{
    const files names{{"b\nNOOP 1", "x"}, {"d\nNOOP 2", "/"}, {"d\nNOOP 2/f", "x"}};
    const tree_row of = sending("", with(theirs, names), {});
    for (const bool goes_on : {true, false}) {
        tree_stage stage(goes_on ? of.with_options(keep_going) : of);
        std::optional<qrftp::tree_result> result;
        EXPECT_EQ(error_of_client([&] { result = stage.run(); }), goes_on ? "" : "InvalidName");
        EXPECT_EQ(stage.t.sent({"NOOP"}), "");
        if (result) {
            EXPECT_EQ(stage.destination(), theirs);
            EXPECT_EQ(result->failures.size(), 3U);
        }
    }
}

TEST(OneHostileTree, EndsWhereAServerHasFoldersWithoutEnd)
{
    const auto limit = [](sync_options& options) { options.max_depth = 60; };
    const tree_row of = fetching("", {}, mine).with_options(limit);
    for (const auto scheme : {url_scheme::ftp, url_scheme::sftp}) {
        tree_stage stage(of.lists("MLSD", "type=dir; d\r\n").where(has_folders_without_end), scheme);
        EXPECT_EQ(error_of_client([&] { (void)stage.run(); }), "UnsafeName");
        EXPECT_EQ(stage.destination(), mine);
    }
}

TEST(OneHostileTree, DeepLocalFoldersDoNotEndTheProcess)
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

TEST(OneHostileTree, FoldersAboveTheLoginFolderAreNotRemoved)
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

TEST(OneHostileTree, NoLinkIsFollowedAndNoPipeFilledUnderANameThatTheServerChose)
{
    for (const auto scheme : {url_scheme::ftp, url_scheme::sftp}) {
        tree_stage stage(fetching("", theirs, {}), scheme);
        auto& client = stage.t.open();
        qrftp::tree_options options;
        options.jobs = 1;
        options.transfer.follow_target = false;
        fs::create_symlink("../outside", stage.local() / "root");
        fs::create_symlink("../outside/x", stage.local() / "a");
        fs::create_symlink("../outside/x", stage.local() / "b");
        EXPECT_EQ(error_of_client([&] { fetch_tree(client, remote_root, stage.local() / "root", options); }),
                  "UnsafeName");
        fs::create_directory(stage.local() / "tree");
        for (const char* const name : {"tree/a", "pipe"})
            ASSERT_EQ(mkfifo((stage.local() / name).c_str(), 0600), 0);
        EXPECT_EQ(error_of_client([&] { fetch_tree(client, remote_root, stage.local() / "tree"); }),
                  "UnsafeName");
        EXPECT_EQ(error_of_client(
                      [&] { client.fetch(remote_root + "/a", stage.local() / "pipe", options.transfer); }),
                  "UnsafeName");
        fs::remove_all(stage.local() / "tree");
        fs::remove(stage.local() / "pipe");
        client.fetch(remote_root + "/a", stage.local() / "a", options.transfer);
        fetch_files(client, {{remote_root + "/a", stage.local() / "b"}}, options);
        EXPECT_EQ(stage.destination(), (files{{"root", "-> ../outside"}, {"a", "new"}, {"b", "new"}}));
        stage.expect_nothing_outside();
    }
}

TEST(OneHostileTree, TwoFilesDoNotBecomeOne)
{
    tree_stage stage(fetching("", theirs, mine));
    const auto same = stage.local() / "d/more";
    const std::vector<qrftp::file_pair> pairs{{remote_root + "/a", same},
                                              {remote_root + "/d/b", same / "../more"}};
    EXPECT_EQ(error_of_client([&] { fetch_files(stage.t.open(), pairs); }), "InvalidOption");
    EXPECT_EQ(stage.destination(), mine);
}

TEST(OneHostileTree, WhatTransfersLeftGoesAfterADayOnThisSideToo)
{
    tree_stage stage(
        fetching("", {}, {{temporary, "old"}, {"d", "/"}, {"d/" + temporary, "old"}, {"d/f", "1"}}));
    fs::create_directory_symlink("../outside", stage.local() / "ln");
    write_file(stage.t.local / "outside" / temporary, "x");
    fs::last_write_time(stage.t.local / "outside" / temporary, fs::file_time_type());
    fs::last_write_time(stage.local() / temporary, fs::file_time_type::clock::now());
    EXPECT_THAT(qrftp::clean_up(stage.local()), ElementsAre(stage.local() / "d" / temporary));
    EXPECT_EQ(stage.destination(),
              (files{{temporary, "old"}, {"d", "/"}, {"d/f", "1"}, {"ln", "-> ../outside"}}));
    EXPECT_TRUE(fs::exists(stage.t.local / "outside" / temporary));
}

// Trees over several connections with a scripted server.

#include "client_stage.hpp"

#include <atomic>
#include <fmt/chrono.h>
#include <gmock/gmock.h>

using namespace support;
using namespace std::literals;
using namespace testing;

namespace {

constexpr int number_of_files = 40;

/// Enough small files in two folders to keep several connections busy.
files many_files(const std::string& root)
{
    files all{{root + "/d", "/"}};
    for (int i = 0; i < number_of_files; ++i)
        all[root + (i % 2 == 0 ? "/d/" : "/") + std::to_string(i)] = std::string(1000, 'x');
    return all;
}

/// The content that is left when the files of `all` lose `root` from their names.
files below(const files& all, const std::string& root)
{
    files found;
    for (const auto& [path, content] : all)
        if (path.starts_with(root + "/"))
            found[path.substr(root.size() + 1)] = content;
    return found;
}

/// How many connections logged in.
std::size_t logins(const scripted_peer& peer)
{
    const auto commands = peer.commands();
    return static_cast<std::size_t>(std::count(commands.begin(), commands.end(), "PASS p"));
}

class tree_transfer {
public:
    tree_transfer()
    {
        auto all = many_files("/home/u/tree");
        all.insert({{"/home", "/"}, {"/home/u", "/"}, {"/home/u/tree", "/"}});
        t.peer.keep(all);
        options.on_action = [this](const qrftp::tree_action& step) {
            actions.push_back(step.path);
            expect_alone();
        };
        options.on_progress = [this](const qrftp::tree_progress& now) {
            last = now;
            largest_job = std::max(largest_job, now.job);
            expect_alone();
            return true;
        };
    }
    qrftp::tree_result fetch(qrftp::session& client)
    {
        return qrftp::fetch_tree(client, "tree", t.local / "tree", options);
    }
    /// Fetches the tree, and sends it back under another name.
    void there_and_back()
    {
        auto& client = t.open();
        for (const bool sends : {false, true}) {
            actions.clear();
            if (sends)
                qrftp::send_tree(client, t.local / "tree", "copy", options);
            else
                fetch(client);
            EXPECT_EQ(actions.size(), number_of_files + 2U);
            EXPECT_EQ(last.files, static_cast<std::size_t>(number_of_files));
            EXPECT_EQ(last.all.bytes, 1000U * number_of_files);
            EXPECT_EQ(last.all.total, 1000U * number_of_files);
        }
        EXPECT_FALSE(overlapped) << "two callbacks at once";
        EXPECT_EQ(below(t.peer.kept(), "/home/u/copy"), below(t.peer.kept(), "/home/u/tree"));
        EXPECT_EQ(files_in(t.local / "tree"), below(t.peer.kept(), "/home/u/tree"));
    }
    /// Gives other connections the time to call as well, in the first of many calls: to yield takes long on a
    /// busy machine.
    void expect_alone()
    {
        ++inside;
        for (int i = ++calls > 30 ? 19 : 0; i < 20; ++i) {
            std::this_thread::yield();
            overlapped = overlapped || inside != 1;
        }
        --inside;
    }
    client_stage t{};
    qrftp::tree_options options{};
    std::vector<std::string> actions{}; ///< written to without a lock: the calls come one at a time
    qrftp::tree_progress last{};
    unsigned largest_job = 0;
    std::atomic<int> calls = 0;
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
};

} // namespace

TEST(Tree, ReportsOneCallAtATimeOverFourConnections)
{
    tree_transfer tree;
    tree.there_and_back();
    EXPECT_GT(logins(tree.t.peer), 1U);
    EXPECT_LE(logins(tree.t.peer), 7U); // four at once, twice, of which the session's own is one
    EXPECT_LT(tree.largest_job, 4U);
}

TEST(Tree, UsesFewerConnectionsWhereTheServerRefusesMore)
{
    const auto full = answer::reply("421 too many connections").then_drop();
    for (const std::string refuses : {"greeting", "PASS"}) {
        tree_transfer limited;
        auto& client = limited.t.open();
        EXPECT_EQ(client.working_folder(), "/home/u");
        limited.t.peer.on(refuses, full);
        EXPECT_EQ(error_of_client([&] { limited.fetch(client); }), "") << refuses;
        EXPECT_EQ(files_in(limited.t.local / "tree"), below(limited.t.peer.kept(), "/home/u/tree"));
    }
}

// Over one connection, hostile_tree_test.cpp shows it.
TEST(Tree, EndsAtTheFirstFailureOrGoesOnOverSeveralConnections)
{
    for (const bool goes_on : {false, true}) {
        tree_transfer tree;
        tree.t.peer.on("RETR /home/u/tree/d/8", answer::reply("550 no"));
        tree.options.jobs = 4;
        tree.options.keep_going = goes_on;
        qrftp::tree_result result;
        const auto fetch = [&] { result = tree.fetch(tree.t.open()); };
        EXPECT_EQ(error_of_client(fetch), goes_on ? "" : "PermissionDenied");
        auto without_the_file = below(tree.t.peer.kept(), "/home/u/tree");
        without_the_file.erase("d/8");
        if (goes_on) {
            EXPECT_THAT(result.failures, ElementsAre(Field(&qrftp::tree_failure::path, "d/8")));
            EXPECT_EQ(files_in(tree.t.local / "tree"), without_the_file);
        }
        EXPECT_THAT(leftovers_in(tree.t.local), IsEmpty());
    }
}

TEST(Tree, IsCancelledByItsProgress)
{
    for (const unsigned jobs : {1U, 4U}) {
        tree_transfer tree;
        tree.options.jobs = jobs;
        tree.options.on_progress = [](const qrftp::tree_progress& now) { return now.files_done < 3; };
        auto& client = tree.t.open();
        EXPECT_EQ(error_of_client([&] { tree.fetch(client); }), "Cancelled");
        EXPECT_LT(files_in(tree.t.local / "tree").size(), static_cast<std::size_t>(number_of_files));
        EXPECT_THAT(leftovers_in(tree.t.local), IsEmpty());
        EXPECT_EQ(client.list("tree").entries.size(), number_of_files / 2 + 1U); // the session serves on
    }
}

TEST(Tree, CleaningUpLeavesWhatMayBeUnderWayWhateverClockTheServerHas)
{
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    for (const auto& [age, sent] : {std::pair(1min, ""), {61min, "DELE ~T1"}}) {
        const auto exact = answer::reply(fmt::format("213 {:%Y%m%d%H%M%S}", now - age));
        client_stage t({{"FEAT", answer::reply("211 none")}, {"MDTM", exact}});
        const std::string west = fmt::format("-rw-r--r-- 1 u u 1 {:%b %d %H:%M}", now - age - 10h);
        t.peer.body("LIST", west + " .qrftp-0123456789abcdef.part\r\n");
        EXPECT_THAT(clean_up(t.open(), ".", std::chrono::seconds::max()), IsEmpty());
        clean_up(*t.client, ".", 1h);
        EXPECT_EQ(t.sent({"DELE"}), sent);
    }
}

// Transfers whose connection breaks: how many bytes come again, and what is left of those that end.

#include "client_stage.hpp"

#include <gmock/gmock.h>
#include <qrftp/tree.hpp>
#include <unistd.h>

using namespace support;
using namespace std::literals;
using namespace testing;
using qrftp::transfer_options;
namespace fs = std::filesystem;

namespace {

const auto cut_after = [](std::size_t bytes) { return answer::transfer(bytes, "").then_drop(); };

/// Bytes without a pattern that a short piece repeats.
std::string content_of(std::size_t size)
{
    std::string all;
    while (all.size() < size)
        all += std::to_string(all.size()) + ' ';
    all.resize(size);
    return all;
}

/// A stage whose peer keeps the one file "/home/u/f".
struct retry_stage : client_stage {
    explicit retry_stage(const std::string& content, const std::vector<rule>& rules = {}) : client_stage(rules)
    {
        peer.keep({{"/home", "/"}, {"/home/u", "/"}, {"/home/u/f", content}});
        write_file(local / "f", content);
        at_once.retry_delay = 0ms;
        open();
    }
    transfer_options at_once;
};

} // namespace

TEST(Retry, FetchesGoOnWhereTheyWere)
{
    const std::string all = content_of(1000);
    const std::vector<rule> three_cuts{
        {"RETR", cut_after(100), 1}, {"RETR", cut_after(200), 2}, {"RETR", cut_after(300), 3}};
    for (int way = 0; way < 3; ++way) {
        SCOPED_TRACE(way);
        retry_stage t(all, three_cuts);
        std::string got;
        if (way == 0)
            t.client->fetch("f", t.local / "new", t.at_once);
        else if (way == 1)
            write_file(t.local / "new", t.client->fetch_string("f", t.at_once));
        else
            fetch_files(*t.client, {{"f", t.local / "new"}}, {.transfer = t.at_once});
        EXPECT_EQ(content(t.local / "new"), all);
        EXPECT_EQ(t.sent({"REST"}), "REST 100|REST 300|REST 600");
    }
}

TEST(Retry, AFileThatChangedComesAnew)
{
    const std::string all = content_of(1000);
    const std::vector<rule> changed{{"RETR", cut_after(100), 1},
                                    {"MDTM", answer::reply("213 20250102030405"), 2}};
    retry_stage t(all, changed);
    t.client->fetch("f", t.local / "new", t.at_once);
    EXPECT_EQ(content(t.local / "new"), all);
    EXPECT_EQ(t.sent({"REST"}), "");
    retry_stage given_away(all, changed);
    EXPECT_EQ(error_of_client([&] { (void)given_away.client->fetch_string("f", given_away.at_once); }),
              "SizeMismatch");
}

TEST(Retry, UploadsGoOnWhereTheServerIs)
{
    struct row {
        std::vector<rule> rules;
        std::string sent;
        std::string error{};
    };
    const std::string piece = "STOR ~T1|APPE ~T1"; // after a break, a short piece first
    for (const auto& [rules, sent, error] :
         {row{{{"STOR", cut_after(20'000), 1}}, piece + "|APPE ~T1"},
          row{{{"STOR", cut_after(20'000), 1}, {"APPE", cut_after(100), 1}}, piece + "|APPE ~T1|APPE ~T1"},
          row{{{"STOR", cut_after(20'000), 1}, {"APPE", answer::transfer(9, "452 full\r\n")}},
              piece,
              "DiskFull"}}) {
        SCOPED_TRACE(sent + error);
        const std::string all = content_of(100'000);
        retry_stage t(all, rules);
        EXPECT_EQ(error_of_client([&] { t.client->send(t.local / "f", "n", t.at_once); }), error);
        EXPECT_EQ(t.sent({"STOR", "APPE"}), sent);
        const auto kept = t.peer.kept();
        EXPECT_EQ(kept.contains("/home/u/n"), error.empty());
        EXPECT_TRUE(!error.empty() || kept.at("/home/u/n") == all);
        EXPECT_EQ(kept.size(), error.empty() ? 4U : 3U) << "a part is left";
    }
}

TEST(Retry, DownloadsGoOnFromWhatThisUserLeftAlone)
{
    const std::string all = content_of(1000);
    for (const std::string change : {"none", "second name", "owner"}) {
        if (change == "owner" && geteuid() != 0)
            continue; // only root gives files away
        retry_stage t(all, {{"RETR", cut_after(100), 1}});
        t.at_once.resume = true;
        t.at_once.retries = 0;
        fs::create_directory(t.local / "tree");
        write_file(t.local / "tree/f", "older");
        const auto fetch = [&] { fetch_tree(*t.client, "/home/u", t.local / "tree", {.transfer = t.at_once}); };
        EXPECT_NE(error_of_client(fetch), "");
        ASSERT_EQ(leftovers_in(t.local).size(), 1U);
        const fs::path part = t.local / leftovers_in(t.local).begin()->first;
        if (change == "second name")
            fs::create_hard_link(part, t.local / "other");
        EXPECT_EQ(change == "owner" ? chown(part.c_str(), 65534, 65534) : 0, 0);
        EXPECT_EQ(error_of_client(fetch), "");
        EXPECT_EQ(t.sent({"REST"}), change == "none" ? "REST 100" : "") << change;
        EXPECT_EQ(content(t.local / "tree/f"), all);
    }
}

TEST(Retry, OneUploadAtATimeGoesOnFromWhatIsLeft)
{
    retry_stage t(content_of(100'000));
    std::optional<std::string> second;
    t.at_once.resume = true;
    transfer_options watched = t.at_once;
    watched.on_progress = [&](const auto&) {
        const auto send = [&] { t.client->clone().send(t.local / "f", "n", t.at_once); };
        second = second ? second : error_of_client(send);
        return true;
    };
    t.client->send(t.local / "f", "n", watched);
    EXPECT_EQ(second, "");
    EXPECT_EQ(t.peer.kept().at("/home/u/n"), content_of(100'000));
    EXPECT_EQ(t.sent({"STOR", "APPE"}), "STOR ~T1|STOR ~T2");
    std::vector<qrftp::sftp::packet_type> asked;
    client_stage many({}, qrftp::url_scheme::sftp);
    many.keep({{"/home", "/"}, {"/home/u", "/"}});
    fs::create_directory(many.local / "tree");
    for (const char* const name : {"a", "b"}) // two names of one file are sent side by side
        fs::create_hard_link(many.local / "f", many.local / "tree" / name);
    send_tree(many.open(), many.local / "tree", "/home/u/tree", {.transfer = t.at_once});
    many.sftp->script([&](sftp_peer& peer) {
        peer.intercept = [&](const sftp_peer::request& each) {
            asked.push_back(each.type);
            return std::optional<std::string>();
        };
    });
    send_files(*many.client, {{"/home/u/c", many.local / "tree/a"}, {"d", many.local / "tree/b"}},
               {.transfer = t.at_once});
    const files kept = many.kept();
    // No other thread asks for the working folder over the first connection.
    EXPECT_EQ(asked.front(), qrftp::sftp::packet_type::realpath);
    EXPECT_EQ(kept.at("/home/u/tree/a") + kept.at("/home/u/tree/b"), "locallocal");
    EXPECT_EQ(kept.at("/home/u/c") + kept.at("/home/u/d"), "locallocal");
}

TEST(Retry, EndsWhenNothingNewArrives)
{
    for (const unsigned retries : {0U, 2U}) {
        retry_stage t(content_of(1000), {{"RETR", cut_after(0)}});
        t.at_once.retries = retries;
        EXPECT_NE(error_of_client([&] { t.client->fetch("f", t.local / "new", t.at_once); }), "");
        const auto commands = t.peer.commands();
        EXPECT_EQ(std::count(commands.begin(), commands.end(), "RETR /home/u/f"), 2 * (1 + retries));
        EXPECT_THAT(leftovers_in(t.local), IsEmpty());
    }
}

TEST(Retry, SegmentsBecomeOneFileOrNone)
{
    const std::string all = content_of(20'000'000);
    transfer_options two;
    two.segments = 2;
    two.retries = 0;
    retry_stage t(all, {{"RETR", answer::transfer(10'000'000, "226 done\r\n")}}); // each its half
    t.client->fetch("f", t.local / "new", two);
    EXPECT_TRUE(content(t.local / "new") == all);
    EXPECT_EQ(t.sent({"REST"}), "REST 10000000");
    t.peer.on("RETR", cut_after(1000), 2);
    EXPECT_NE(error_of_client([&] { t.client->fetch("f", t.local / "more", two); }), "");
    EXPECT_FALSE(fs::exists(t.local / "more"));
    EXPECT_THAT(leftovers_in(t.local), IsEmpty());
}

// FTP against servers that say something else than they should, or do not know what others do.

#include "client_stage.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <stop_token>

using namespace support;
using namespace testing;
using namespace std::literals;

namespace {

const auto denied = answer::reply("550 no");
const auto unknown = answer::reply("500 unknown");

} // namespace

TEST(Ftp, SendsBothNamesAgainWhenTheServerSaidGoodbyeInBetween)
{
    client_stage t({{"RNTO", answer::reply("421 bye").then_drop(), 1}});
    t.open().rename("f", "new");
    EXPECT_EQ(t.sent({"RNFR", "RNTO"}), "RNFR ~f|RNTO ~new|RNFR ~f|RNTO ~new");
}

TEST(Ftp, RefusesDataConnectionsOfOthersInTheClear)
{
    for (const char* const address : {"127.0.0.1", "127.0.0.2"}) {
        client_stage t;
        t.options.active = true;
        t.peer.data_address(address);
        const bool other = address == "127.0.0.2"sv;
        EXPECT_EQ(error_of_client([&] { (void)t.open().list(); }), other ? "ProtocolError" : "") << address;
        EXPECT_EQ(error_of_client([&] { t.client->fetch("f", t.local / "got"); }),
                  other ? "ProtocolError" : "");
        EXPECT_NE(files_in(t.local).contains("got"), other);
    }
}

TEST(Ftp, SaysWhichConnectionIsBlocked)
{
    client_stage t({{"EPSV", answer::reply("229 ok (|||1|)")}});
    EXPECT_THAT([&] { (void)t.open().list(); },
                ThrowsMessage<qrftp::NoConnection>(HasSubstr("data connection")));
}

TEST(Ftp, ListsHiddenFilesWhereTheServerCan)
{
    const std::string plain = "-rw-r--r-- 1 u u 1 Jan 01 2024 f\r\n";
    const std::string all = plain + "-rw-r--r-- 1 u u 1 Jan 01 2024 .h\r\n";
    const struct {
        const char* what;
        answer all_answer;
        std::string all_body, sent;
        std::vector<std::string> found;
    } rows[] = {
        {"takes -a", {}, all, "LIST -a|LIST -a", {".h", "f"}},
        {"refuses it", unknown, "", "LIST -a|LIST|LIST", {"f"}},
        {"takes it for a name", denied, "", "LIST -a|LIST|LIST", {"f"}},
        {"complains in the listing", {}, "ls: -a: No such file\r\n", "LIST -a|LIST|LIST", {"f"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        client_stage t({{"FEAT", unknown}, {"LIST -a", row.all_answer}});
        t.peer.body("LIST", plain);
        t.peer.body("LIST -a", row.all_body);
        for (int time = 1; time <= 2; ++time) {
            const auto listing = time == 1 ? t.open().list() : t.client->list();
            EXPECT_EQ(names_in(listing), row.found);
            EXPECT_THAT(listing.skipped, IsEmpty());
        }
        EXPECT_EQ(t.sent({"LIST"}), row.sent);
    }
}

TEST(Ftp, SetsTimesAsTheServerCanAndSaysOnceThatItCannot)
{
    const answer without = answer::reply("211-Features:\r\n SIZE\r\n211 End");
    const answer done = answer::reply("213 done");
    const struct {
        answer features, mfmt, mdtm;
        std::string sent;
        std::size_t warnings;
    } rows[] = {{{}, {}, denied, "MFMT|MFMT", 0},
                {{}, answer::reply("501 not that time"), denied, "MFMT|MFMT", 0},
                {without, unknown, done, "MDTM|MDTM", 0},
                {{}, unknown, done, "MFMT|MDTM|MDTM", 0},
                {without, unknown, denied, "MDTM", 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.sent);
        client_stage t({{"FEAT", row.features}, {"MFMT", row.mfmt}, {"MDTM", row.mdtm}});
        std::vector<std::string> warnings;
        t.options.on_warning = [&](const std::string& sentence) { warnings.push_back(sentence); };
        t.open().send(t.local / "f", "t", {.keep_time = true});
        t.client->send(t.local / "f", "t", {.keep_time = true});
        std::string verbs;
        for (const auto& line : t.peer.commands())
            if (line.starts_with("MFMT") || line.starts_with("MDTM"))
                verbs += (verbs.empty() ? "" : "|") + line.substr(0, 4);
        EXPECT_EQ(verbs, row.sent);
        EXPECT_EQ(warnings.size(), row.warnings);
    }
}

TEST(Ftp, EndsListingsThatAreTooLong)
{
    for (const auto scheme : {qrftp::url_scheme::ftp, qrftp::url_scheme::sftp}) {
        client_stage t({}, scheme);
        t.options.listing_limit = 10;
        EXPECT_THAT([&] { (void)t.open().list(); },
                    ThrowsMessage<qrftp::IncompleteListing>(HasSubstr("listing_limit")));
    }
}

TEST(Ftp, AsksForThePasswordThreeTimesAtMost)
{
    const answer wrong = answer::reply("530 wrong");
    for (const unsigned right : {0U, 2U, 3U}) {
        SCOPED_TRACE(right);
        client_stage t;
        for (unsigned attempt = 0; attempt < right; ++attempt)
            t.peer.on("PASS", wrong, static_cast<int>(attempt) + 1);
        t.options.password.reset();
        std::vector<unsigned> asked;
        t.options.ask_password = [&](unsigned attempt) {
            asked.push_back(attempt);
            return "secret" + std::to_string(attempt);
        };
        EXPECT_EQ(error_of_client([&] { t.open(); }), right == 3 ? "LoginRefused" : "");
        EXPECT_EQ(asked.size(), std::min(right + 1, 3U));
        EXPECT_THAT(t.sent({"PASS"}), EndsWith("PASS secret" + std::to_string(asked.back())));
    }
}

TEST(Ftp, IsCancelledAtOnceWhateverItWaitsFor)
{
    for (const char* const silent : {"greeting", "NOOP", "MLSD"}) {
        SCOPED_TRACE(silent);
        client_stage t({{silent, answer::silence()}});
        std::stop_source stop;
        t.options.stop = stop.get_token();
        std::chrono::steady_clock::time_point asked;
        const std::jthread cancelling([&](const std::stop_token& over) {
            while (t.peer.steps() == 0 ||
                   (silent != "greeting"sv && t.sent({silent}).empty() && !over.stop_requested()))
                std::this_thread::yield();
            asked = std::chrono::steady_clock::now();
            stop.request_stop();
        });
        EXPECT_EQ(error_of_client([&] {
                      (void)t.open().server_info();
                      (void)t.client->list();
                  }),
                  "Cancelled");
        EXPECT_LT(std::chrono::steady_clock::now() - asked, 500ms);
        EXPECT_EQ(error_of_client([&] { (void)t.open(); }), "Cancelled") << "and every later request";
    }
}

TEST(Ftp, ReadsALongReplyAtOnce)
{
    std::string lines = "213-\r\n";
    for (int i = 0; i < 20'000; ++i)
        lines += "150-\r\n";
    client_stage t({{"SIZE", answer::reply(lines + "213 6")}});
    t.open();
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(t.client->fetch_string("f"), "remote");
    EXPECT_LT(std::chrono::steady_clock::now() - began, 10s);
}

// A session against what honest servers never do: what the caller gets, and what was sent.

#include "client_stage.hpp"

#include <gmock/gmock.h>

using namespace support;
using namespace std::literals;
using namespace testing;
using qrftp::session;
using qrftp::tls_mode;
namespace fs = std::filesystem;

namespace {

const auto denied = answer::reply("550 no");
const auto unknown = answer::reply("500 unknown");
const auto not_implemented = answer::reply("502 no");

const qrftp::transfer_options resume{.resume = true, .retries = 0};
const qrftp::transfer_options once{.retries = 0};
const qrftp::sync_options one_job{{.transfer = once, .jobs = 1}};

/// A request of a session about a remote name, and the command that matters in it.
struct request {
    std::string verb;
    std::string text;
    std::function<void(session&, const std::string& name, const fs::path& local)> run;

    [[nodiscard]] bool has_name() const { return text.find("name") != text.npos; }
};
#define REQUEST(verb, ...)                                                                                     \
    request                                                                                                    \
    {                                                                                                          \
#verb, #__VA_ARGS__,                                                                                   \
            [](session & s, [[maybe_unused]] const std::string& name,                                          \
               [[maybe_unused]] const fs::path& local) { (void)(__VA_ARGS__); }                                \
    }
const request requests[] = {
    REQUEST(NOOP, s.server_info()),
    REQUEST(SYST, s.system_type()),
    REQUEST(CWD, s.change_folder(name)),
    REQUEST(MLST, s.find(name)),
    REQUEST(MLST, s.stat(name)),
    REQUEST(MLST, s.exists(name)),
    REQUEST(MLST, s.is_folder(name)),
    REQUEST(MLST, s.is_file(name)),
    REQUEST(SIZE, s.file_size(name)),
    REQUEST(MDTM, s.modification_time(name)),
    REQUEST(MLSD, s.list(name)),
    REQUEST(MLSD, s.list(name, [](auto&&) {})),
    REQUEST(MKD, s.make_folder(name)),
    REQUEST(MKD, s.make_folder(name, true)),
    REQUEST(RMD, s.remove_folder(name)),
    REQUEST(MLSD, s.remove_folder(name, true)),
    REQUEST(DELE, s.remove_file(name)),
    REQUEST(RNFR, s.rename(name, "new")),
    REQUEST(RNTO, s.rename("old", name, true)),
    REQUEST(RETR, s.fetch(name, local / "got", once)),
    REQUEST(RETR, s.fetch_string(name, once)),
    REQUEST(STOR, s.send(local / "f", name, once)),
    REQUEST(STOR, s.send_string("local", name, once)),
    REQUEST(RNTO, s.send(local / "f", name)),
    REQUEST(APPE, s.send(local / "long", name, resume)),
    REQUEST(MLSD, fetch_tree(s, name, local / "tree", one_job)),
    REQUEST(STOR, send_tree(s, local, name, one_job)),
    REQUEST(MLSD, synchronise(s, local, name, qrftp::direction::send, one_job)),
};

} // namespace

TEST(Session, SendsNothingOfANameThatWouldBecomeACommand)
{
    client_stage t;
    auto& client = t.open();
    const int steps = t.peer.steps();
    for (const auto& poison : {"\r"s, "\n"s, "\0"s, "\xff"s, "x\r\nDELE x"s}) {
        SCOPED_TRACE(PrintToString(poison));
        EXPECT_EQ(error_of_client([&] { (void)client.absolute("f" + poison); }), "InvalidName");
        for (const auto& each : requests) {
            const auto call = [&] { each.run(client, "f" + poison, t.local); };
            EXPECT_EQ(each.has_name() ? error_of_client(call) : "InvalidName", "InvalidName") << each.text;
        }
        auto user = t.options;
        user.user += poison;
        auto password = t.options;
        password.password->append(poison);
        for (const auto& options : {user, password})
            EXPECT_EQ(error_of_client([&] { session(t.peer.url(), options); }), "InvalidName");
        auto url = qrftp::url::parse(t.peer.url());
        url.user += poison;
        EXPECT_EQ(error_of_client([&] { session(url, qrftp::session_options()); }), "InvalidName");
        auto host = qrftp::url::parse(t.peer.url());
        host.host += poison;
        EXPECT_NE(error_of_client([&] { session(host, qrftp::session_options()); }), "");
    }
    EXPECT_EQ(t.peer.steps(), steps);
    t.peer.on("PWD", answer::reply("257 \"/home\rDELE x\" is current"));
    // Newer versions of libcurl refuse the reply themselves.
    EXPECT_THAT(error_of_client([&] { (void)t.open().list(); }), AnyOf("InvalidName", "NoConnection"));
    EXPECT_THAT(t.peer.commands(), Each(Not(HasSubstr("DELE"))));
}

TEST(Session, IsNotUsedInACallbackOfItsOwnRequest)
{
    for (const auto scheme : {qrftp::url_scheme::ftp, qrftp::url_scheme::sftp}) {
        client_stage t({}, scheme);
        t.peer.body("MLSD /home/u", "type=dir; a\r\ntype=dir; b\r\n");
        if (t.sftp)
            t.keep({{"/home", "/"}, {"/home/u", "/"}, {"/home/u/x", "1"}});
        t.open();
        int found = 0;
        t.client->list(".", [&](auto&&) {
            ++found;
            EXPECT_THROW((void)t.client->file_size("t"), std::logic_error);
        });
        EXPECT_GE(found, scheme == qrftp::url_scheme::ftp ? 2 : 1);
        EXPECT_NO_THROW(t.client->make_folder("n"));
    }
}

// That a password is never sent without it, tls_test.cpp shows.
TEST(Session, DoesWithoutTlsForAnonymousLoginsUnlessStrict)
{
    for (const bool enters : {false, true}) {
        client_stage t({{"AUTH", unknown}});
        t.options.tls = enters ? tls_mode::opportunistic : tls_mode::strict;
        t.options.user = "";
        EXPECT_EQ(error_of_client([&] { t.open(); }), enters ? "" : "NoEncryption");
        EXPECT_EQ(t.sent({"USER", "PASS"}).empty(), !enters);
    }
}

TEST(Session, ListsWithWhatTheServerOffers)
{
    const auto facts = "type=file;size=1; a\r\ntype=dir; d\r\n"s;
    const auto unix_text = "-rw-r--r-- 1 u u 1 Jan 01 2024 a\r\ndrwxr-xr-x 1 u u 0 Jan 01 2024 d\r\n"s;
    const auto windows_text = "01-01-24  01:00PM <DIR> d\r\n01-01-24  01:00PM 1 a\r\n"s;
    const auto no_features = answer::reply("211 none");
    struct row {
        std::vector<rule> rules;
        std::string body;
        std::string transfers; ///< the commands that listed
    };
    const row rows[] = {
        {{}, facts, "MLSD ~"},
        {{{"EPSV", unknown}}, facts, "MLSD ~"},
        {{{"MLSD", unknown}}, unix_text, "MLSD ~|LIST"},
        {{{"MLSD", not_implemented}}, unix_text, "MLSD ~|LIST"},
        {{{"FEAT", no_features}}, unix_text, "LIST"},
        {{{"FEAT", unknown}}, windows_text, "LIST"},
        {{{"MLSD", answer::transfer(31, "426 cut\r\n"), 1}}, facts, "MLSD ~|MLSD ~"},
    };
    for (const auto& [rules, body, transfers] : rows) {
        SCOPED_TRACE(transfers + " " + (rules.empty() ? "" : rules[0].line + " " + *rules[0].what.bytes));
        client_stage t(rules);
        t.peer.passive_address("192,0,2,1"); // which nobody reaches: the control connection's is used
        for (const char* verb : {"MLSD /home/u", "LIST"})
            t.peer.body(verb, body);
        const auto got = t.open().list();
        EXPECT_THAT(names_in(got), ElementsAre("a", "d"));
        EXPECT_THAT(got.skipped, IsEmpty());
        // Servers differ in what they take with LIST ("-a").
        EXPECT_THAT(t.sent({"MLSD", "LIST"}),
                    AnyOf(transfers, StartsWith(transfers + " "), StartsWith(transfers + "|LIST")));
    }
}

TEST(Session, RepeatsOnceWhatWasNotCarriedOut)
{
    for (const auto& [verb, text, run] : requests)
        for (const bool always : {false, true})
            for (const std::string words : {"421 bye\r\n", ""}) {
                SCOPED_TRACE(text + ": " + words + (always ? "always" : "once"));
                client_stage t({{verb, answer::raw(words).then_drop(), always ? 0 : 1}});
                const bool changes =
                    verb == "MKD" || verb == "RMD" || verb == "DELE" || verb == "RNTO" || verb == "APPE";
                const bool again = !words.empty() || !changes;
                const auto error = error_of_client([&] { run(t.open(), "f", t.local); });
                EXPECT_EQ(error, !always && again ? "" : "ConnectionLost");
                auto met = t.peer.commands();
                std::erase_if(met, [&](auto& line) { return !line.starts_with(verb); });
                ASSERT_FALSE(met.empty());
                EXPECT_EQ(std::count(met.begin(), met.end(), met[0]), again ? 2 : 1) << t.sent();
                // No name to which a working folder gives a meaning.
                for (const auto& line : t.peer.commands())
                    EXPECT_THAT(line, Not(ContainsRegex("^(CWD|M[A-Z]+|DELE|R[A-Z]+|SIZE|STOR|APPE) [^/]")));
            }
}

TEST(Session, FindsWhatIsThereWithoutTheCommandsForIt)
{
    const auto only_mlst = answer::reply("211-Features:\r\n MLST\r\n211 End");
    for (const auto& features : {only_mlst, unknown})
        for (const auto& refusal : {denied, unknown, not_implemented})
            for (const std::string refused : {"", "MLST", "SIZE", "MDTM", "MLST SIZE MDTM"}) {
                SCOPED_TRACE(*features.bytes + *refusal.bytes + " to " + refused);
                client_stage t({{"FEAT", features}, {"CWD /home/u/f", denied}, {"CWD /home/u/none", denied}});
                for (const std::string verb : {"MLST", "SIZE", "MDTM"})
                    if (refused.find(verb) != refused.npos)
                        t.peer.on(verb, refusal);
                t.peer.body("MLSD /home/u", "type=file; f\r\ntype=dir; d\r\n");
                t.peer.body("MLSD /home/u/d", "");
                t.peer.body("LIST", "-rw-r--r-- 1 u u 1 Jan 01 2024 f\r\ndrwxr-xr-x 1 u u 0 Jan 01 2024 d\r\n");
                auto& client = t.open();
                const auto kind_of = [&](const char* name) -> std::string {
                    return std::string(client.exists(name) ? "" : "nothing") +
                           (client.is_file(name) ? "file" : "") + (client.is_folder(name) ? "folder" : "");
                };
                EXPECT_EQ(kind_of("f"), "file");
                EXPECT_EQ(kind_of("d"), "folder");
                EXPECT_EQ(kind_of("none"), "nothing");
                EXPECT_EQ(kind_of("/"), "folder");
                t.peer.body("LIST", "");
                EXPECT_FALSE(client.is_file("none"));
            }
}

TEST(Session, SendsNoMoreThanItNeeds)
{
    client_stage t({{"NOOP", answer::drop_after()}, {"CWD /home/u/no", denied}});
    auto& client = t.open();
    EXPECT_EQ(client.list("").entries.size(), 1U);
    EXPECT_EQ(error_of_client([&] { client.change_folder("no"); }), "NotFound");
    EXPECT_EQ(client.absolute("../d/./e//"), "/home/d/e");
    EXPECT_EQ(client.change_folder("./x/../d/"), "/home/u/d");
    EXPECT_EQ(client.fetch_string("../f"), "remote");
    client.fetch("../f", t.local / "f", {.listed_size = 6});
    EXPECT_GT(client.server_info().round_trip, 0s);
    t.peer.await_drop();
    client.remove_file("x");
    EXPECT_EQ(t.sent(), "USER u|PASS p|PWD|FEAT|EPSV|TYPE A|MLSD ~|CWD ~no|MLST ~no|EPSV|MLSD ~|CWD ~d|CWD "
                        "~|EPSV|TYPE I|SIZE ~f|MDTM ~f|RETR ~f|EPSV|RETR ~f|"
                        "NOOP|USER u|PASS p|PWD|DELE ~d/x");
}

TEST(Session, SaysWhatTheServerSaidAndNoSecret)
{
    const auto evil = answer::reply("550 s3cret \x1b[31mno\x07");
    client_stage t({{"DELE", evil}, {"PASS", evil, 3}});
    t.options.password = "s3cret";
    const auto remove = [&] { t.open().remove_file("f"); };
    EXPECT_THAT(remove, Throws<qrftp::error>(AllOf(Property("reply_code", &qrftp::error::reply_code, 550),
                                                   Property("server_message", &qrftp::error::server_message,
                                                            HasSubstr("\x1b[31mno\x07")),
                                                   Property("path", &qrftp::error::path, "/home/u/f"))));
    for (int login = 2; login <= 3; ++login)
        EXPECT_THAT(remove, ThrowsMessage<std::exception>(
                                AllOf(HasSubstr("\\x1b[31mno\\x07"), Not(HasSubstr("s3cret")))));
}

TEST(Session, EndsWhenNothingHappens)
{
    client_stage t({{"DELE", answer::silence()}});
    t.options.stall_timeout = 1s; // the peer's patience, after which the error is another one, is longer
    EXPECT_EQ(error_of_client([&] { t.open().remove_file("f"); }), "Timeout");
}

TEST(Session, TakesAnyLimitOfTimeAndNoTimeThatCannotBe)
{
    for (const auto scheme : {qrftp::url_scheme::ftp, qrftp::url_scheme::sftp})
        for (const auto limit : {std::chrono::milliseconds::max(), -1ms}) {
            client_stage t({}, scheme);
            t.options.connect_timeout = t.options.stall_timeout = t.options.total_timeout = limit;
            EXPECT_EQ(error_of_client([&] { (void)t.open().exists("f"); }), limit < 0ms ? "InvalidOption" : "");
            const auto set_time = [&] { t.client->set_modification_time("f", std::chrono::sys_seconds(-1s)); };
            EXPECT_TRUE(!t.sftp || !t.client || error_of_client(set_time) == "NotSupported");
        }
}

TEST(Session, ThrowsClosedWhenItWasClosedOrMovedFrom)
{
    client_stage t;
    session first(t.peer.url(), t.options);
    const session second = std::move(first);
    EXPECT_EQ(second.working_folder(), "/home/u");
    EXPECT_EQ(error_of_client([&] { (void)first.list(); }), "Closed");
    EXPECT_EQ(error_of_client([&] { first = second.clone(); }), "");
    EXPECT_EQ(first.list().entries.size(), 1U);
    first.close();
    first.close();
    EXPECT_EQ(error_of_client([&] { (void)first.working_folder(); }), "Closed");
}

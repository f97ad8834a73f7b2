// The client against what honest servers never do: what the caller gets, and what was sent.

#include "ledger.hpp"
#include "scripted_peer.hpp"

#include <fstream>
#include <gmock/gmock.h>
#include <qrftp/client.hpp>
#include <regex>

using namespace support;
using namespace qrftp::error;
using namespace std::literals;
using namespace testing;
using qrftp::session;
using qrftp::tls_mode;
namespace fs = std::filesystem;
using script = std::vector<std::tuple<std::string, answer, int>>; // as scripted_peer::on() takes it

namespace {

/// The key of what `call` throws.
std::string error_of(const std::function<void()>& call)
{
    try {
        call();
        return "nothing";
    } catch (const std::exception& error) {
        const std::string key =
            dynamic_cast<const foundation::core::except::IMsgIDException&>(error).identifier();
        EXPECT_THAT(error.what(), AllOf(HasSubstr(" "), Not(HasSubstr(component)))) << "no sentence";
        return key.substr(key.rfind(':') + 1);
    }
}

/// The parts that begin as wanted; with "~" for the login folder and "T1", "T2", … for the temporary names as
/// they come.
std::string joined(const std::vector<std::string>& parts, const std::string& wanted = "")
{
    std::string all;
    for (const auto& part : parts)
        if (std::regex_search(part, std::regex("^(" + wanted + ")")))
            all += (all.empty() ? "" : "|") + part;
    all = std::regex_replace(all, std::regex(" /home/u/?"), " ~");
    std::smatch found;
    for (int n = 1; std::regex_search(all, found, std::regex("\\.qrftp-[0-9a-f]{16}\\.part")); ++n)
        all = std::regex_replace(all, std::regex(found.str()), "T" + std::to_string(n));
    return all;
}

/// A peer with the files "f" and "t", the client on it, and a local folder with "f" and a long file.
struct stage {
    explicit stage(const script& rules = {})
    {
        how.user = "u", how.password = "p", how.tls = tls_mode::none;
        fs::create_directory(local);
        std::ofstream(local / "f") << "local", std::ofstream(local / "long") << "longer than the remote one";
        for (const char* name : {"/home/u/f", "/home/u/t"})
            peer.file(name, "remote");
        peer.body("MLSD /home/u", "type=dir; f\r\n");
        for (const auto& [line, what, nth] : rules)
            peer.on(line, what, nth);
    }
    ~stage() { fs::remove_all(local); }
    session& open() { return client.emplace(peer.url(), how); }
    std::string sent(const std::string& wanted = "") const { return joined(peer.commands(), wanted); }
    auto files() const { return std::distance(fs::recursive_directory_iterator(local), {}); }
    scripted_peer peer{};
    fs::path local = fs::path(TempDir()) / ("client_test." + std::to_string(peer.port()));
    qrftp::options how{};
    std::optional<session> client{};
};

struct row {
    script rules;
    std::function<void(stage&)> call;
    std::string sent, error = "nothing";
};
void check(const std::string& wanted, const std::vector<row>& rows)
{
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i) + ": " + rows[i].error + ", " + rows[i].sent);
        stage t(rows[i].rules);
        EXPECT_EQ(error_of([&] { rows[i].call(t); }), rows[i].error);
        EXPECT_EQ(t.sent(wanted), rows[i].sent);
    }
}

script rule(const std::string& line, const answer& what, int nth = 0)
{
    return {{line, what, nth}};
}
const auto no = answer::reply("550 no"), unknown = answer::reply("500 unknown"),
           taken = answer::reply("553 no");
const qrftp::transfer_options rest{false, true, true, false, 0, {}};

/// The command that matters, the call in words, the call.
using operation = std::tuple<std::string, std::string,
                             std::function<void(session&, const std::string& x, const fs::path& local)>>;
#define OP(verb, ...)                                                                                          \
    operation(#verb, #__VA_ARGS__,                                                                             \
              [](auto& c, auto& x, auto& l) { (void)c, (void)x, (void)l, (void)(__VA_ARGS__); })
const std::vector<operation> operations{OP(NOOP, c.about()),
                                        OP(SYST, c.system_type()),
                                        OP(CWD, c.change_folder(x)),
                                        OP(MLST, c.find(x)),
                                        OP(MLST, c.stat(x)),
                                        OP(MLST, c.exists(x)),
                                        OP(MLST, c.is_folder(x)),
                                        OP(MLST, c.is_file(x)),
                                        OP(SIZE, c.file_size(x)),
                                        OP(MDTM, c.modification_time(x)),
                                        OP(MLSD, c.list(x)),
                                        OP(MLSD, c.list(x, [](auto&&) {})),
                                        OP(MKD, c.make_folder(x)),
                                        OP(MKD, c.make_folder(x, true)),
                                        OP(RMD, c.remove_folder(x)),
                                        OP(MLSD, c.remove_folder(x, true)),
                                        OP(DELE, c.remove_file(x)),
                                        OP(RNFR, c.rename(x, "new")),
                                        OP(RNTO, c.rename("old", x, true)),
                                        OP(RETR, c.fetch(x, l / "got")),
                                        OP(RETR, c.fetch(x, [](auto) { return true; })),
                                        OP(STOR, c.send(l / "f", x)),
                                        OP(RNTO, c.send(l / "f", x)),
                                        OP(APPE, c.send(l / "long", x, rest)),
                                        OP(MLSD, fetch_tree(c, x, l / "tree")),
                                        OP(STOR, send_tree(c, l, x)),
                                        OP(MLSD, synchronise(c, l, x, qrftp::direction::send))};

} // namespace

TEST(ClientDialogue, SendsNothingOfANameThatWouldBecomeACommand)
{
    stage t;
    auto& client = t.open();
    const int steps = t.peer.steps();
    for (const auto& poison : {"\r"s, "\n"s, "\0"s, "x\r\nDELE x"s}) {
        std::vector<std::pair<std::string, std::function<void()>>> calls{
            {"absolute", [&] { client.absolute(poison); }}};
        for (const auto& [verb, text, call] : operations)
            if (text.find('x') != text.npos)
                calls.emplace_back(text, [&, &call = call] { call(client, "f" + poison, t.local); });
        auto user = t.how, password = t.how, phrase = t.how;
        user.user += poison, password.password->append(poison), phrase.pass_phrase = poison;
        for (const auto& with : {user, password, phrase})
            calls.emplace_back("options", [&t, with] { session(t.peer.url(), with); });
        auto first = qrftp::url::parse(t.peer.url()), second = first, third = first;
        first.user += poison, second.password += poison, third.host += poison;
        for (const auto& where : {first, second, third})
            calls.emplace_back("url", [where] { session(where, qrftp::options()); });
        for (const auto& [name, call] : calls)
            EXPECT_EQ(error_of(call), "InvalidName") << name << PrintToString(poison);
    }
    EXPECT_EQ(t.peer.steps(), steps);
    t.peer.on("PWD", answer::reply("257 \"/home\rDELE x\" is current"));
    EXPECT_EQ(error_of([&] { t.open(); }), "InvalidName");
    EXPECT_THAT(t.peer.commands(), Each(Not(HasSubstr("DELE"))));
}

TEST(ClientDialogue, NeedsTlsWhereAPasswordOrStrictnessAsksForIt)
{
    for (const auto& [tls, user, enters] : {std::tuple(tls_mode::strict, "", false),
                                            {tls_mode::opportunistic, "u", false},
                                            {tls_mode::opportunistic, "", true},
                                            {tls_mode::none, "u", true}}) {
        const auto call = [tls = tls, user = user](stage& t) {
            t.how.tls = tls, t.how.user = user, t.open().change_folder("d");
        };
        check(enters ? "CWD" : "USER|PASS|CWD", {{rule("AUTH", unknown), call, enters ? "CWD ~d|CWD ~" : "",
                                                  enters ? "nothing" : "NoEncryption"}});
    }
}

TEST(ClientDialogue, ReadsListingsOfServersThatGoAstray)
{
    const auto mlsd = "type=file;size=1; a\r\ntype=dir; d\r\n"s, fast = "EPSV|MLSD ~"s,
               slow = "CWD ~|EPSV|LIST"s, both = fast + "|" + slow;
    const auto old = "-rw-r--r-- 1 u u 1 Jan 01 2024 a\r\ndrwxr-xr-x 1 u u 0 Jan 01 2024 d\r\n"s,
               twice = fast + "|" + fast;
    const auto list = [](const std::string& body, const std::string& expected = "a|d#") {
        return [=](stage& t) {
            t.peer.passive_address("192,0,2,1");
            for (const char* verb : {"MLSD /home/u", "LIST"})
                t.peer.body(verb, body);
            const auto got = t.open().list();
            std::vector<std::string> found;
            for (const auto& each : got.entries)
                found.push_back(each.name);
            EXPECT_EQ(joined(found) + "#" + joined(got.skipped), expected);
        };
    };
    const auto cut = [](const char* last) { return rule("MLSD", answer::transfer(31, last + "\r\n"s), 1); };
    check("EPSV|PASV|CWD|MLSD|LIST",
          {{{}, list(mlsd), fast},
           {rule("EPSV", unknown), list(mlsd), "EPSV|PASV|MLSD ~"},
           {rule("MLSD", unknown), list(old), both},
           {rule("MLSD", answer::reply("502 no")), list(old), both},
           {rule("FEAT", answer::reply("211 none")), list(old), slow},
           {rule("FEAT", unknown), list("01-01-24  01:00PM <DIR> d\r\n01-01-24  01:00PM 1 a b\r\n", "a b|d#"),
            slow},
           {cut("226 done"), list(mlsd, "a#type=dir; "), fast},
           {cut("426 cut"), list(mlsd), twice},
           {cut("451 cut"), list(mlsd), twice},
           {cut("421 cut"), list(mlsd), twice}});
    stage t;
    t.peer.file("/home/u/a", "1");
    const auto bad =
        "type=dir; ..\ntype=file;size=1; ../e\ntype=file; /e\ntype=dir; d/.\ntype=file; e\0\nwhat?\ntype=file; b\rDELE x\n"s;
    list(mlsd + bad,
         "a|b|d#type=file;size=1; ../e|type=file; /e|type=dir; d/.|type=file; e\0|what?|DELE x"s)(t);
    qrftp::tree_options going_on;
    going_on.keep_going = true;
    const auto tree = fetch_tree(*t.client, ".", t.local / "x/y", going_on);
    EXPECT_EQ(10 * tree.skipped.size() + tree.failures.size(), 61);
    EXPECT_EQ(t.files(), 4 + fs::exists(t.local / "x/y/a") + fs::is_directory(t.local / "x/y/d"));
}

TEST(ClientDialogue, RepeatsOnceWhatWasNotCarriedOut)
{
    for (const auto& [verb, text, call] : operations)
        for (const auto& [words, nth] : {std::pair("421 bye\r\n", 1), {"421 bye\r\n", 0}, {"", 1}, {"", 0}}) {
            SCOPED_TRACE(text + ": " + words + std::to_string(nth));
            stage t(rule(verb, answer::raw(words).then_drop(), nth));
            const bool again =
                *words != 0 || !std::regex_match(verb, std::regex("MKD|RMD|DELE|RNFR|RNTO|APPE"));
            EXPECT_EQ(error_of([&, &call = call] { call(t.open(), "f", t.local); }),
                      nth == 1 && again ? "nothing" : "ServerGone");
            auto met = t.peer.commands();
            std::erase_if(met, [&, &verb = verb](auto& line) { return !line.starts_with(verb); });
            EXPECT_EQ(std::count(met.begin(), met.end(), met.at(0)), again ? 2 : 1) << t.sent();
            EXPECT_EQ(t.sent("(CWD|M[A-Z]+|LIST|DELE|R[A-Z]+|SIZE|STOR|APPE) [^/]"),
                      ""); // no name that a folder gives a meaning
        }
}

TEST(ClientDialogue, UploadsAllOrNothing)
{
    const auto put = [](const char* name) { return [=](stage& t) { t.open().send(t.local / "f", name); }; };
    const auto to = "RNTO /home/u/t"s, sent = "STOR ~T1|RNFR ~T1|RNTO ~t"s,
               again = sent + "|RNFR ~t|RNTO ~T2|RNFR ~T1|RNTO ~t";
    const auto back = again + "|RNFR ~T2|RNTO ~t|DELE ~T1", gone = "STOR ~T1|DELE ~T1"s,
               new_gone = "STOR ~T1|RNFR ~T1|RNTO ~n|DELE ~T1"s;
    const auto full = answer::transfer(3, "452 full\r\n");
    check("STOR|DELE|RNFR|RNTO",
          {{{}, put("t"), sent},
           {rule("SIZE", unknown), put("t"), sent},
           {rule("RNTO", no), put("n"), new_gone, "Denied"},
           {rule("RNTO", taken), put("n"), new_gone, "Denied"},
           {rule(to, taken, 1), put("t"), again + "|DELE ~T2"},
           {{{to, taken, 1}, {to, no, 2}}, put("t"), back, "Denied"},
           {{{to, taken, 1}, {to, answer::drop(), 2}}, put("t"), again + "|DELE ~T2|DELE ~T1", "ServerGone"},
           {{{to, taken, 1}, {to, answer::drop(), 2}, {"MLST /home/u/t", no, 2}}, put("t"), back, "ServerGone"},
           {{{to, no, 0}, {"RNFR /home/u/t", no, 0}}, put("t"), sent + "|RNFR ~t|RNTO ~T2|DELE ~T1", "Denied"},
           {rule("STOR", taken, 1), put("t"), "STOR ~T1|STOR ~T2|RNFR ~T2|RNTO ~t"},
           {rule("STOR", taken), put("t"), "STOR ~T1|STOR ~T2|DELE ~T2", "Denied"},
           {rule("STOR", full), put("t"), gone, "Refused"},
           {rule("SIZE", answer::reply("213 1")), put("t"), gone, "SizeMismatch"}});
}

TEST(ClientDialogue, FetchesAllOrNothing)
{
    const auto cut = [](std::size_t limit, const std::string& last) {
        return answer::transfer(limit, last).then_drop();
    };
    for (const auto& [what, error] : {std::pair(answer::transfer(3, "226 done\r\n"), "SizeMismatch"),
                                      {cut(3, "426 cut\r\n"), "SizeMismatch"},
                                      {cut(whole, "451 cut\r\n"), "SizeMismatch"},
                                      {cut(3, ""), "SizeMismatch"},
                                      {cut(whole, "421 bye\r\n"), "ServerGone"},
                                      {cut(whole, ""), "ServerGone"}})
        for (const auto& [once, listed] : {std::pair(false, 0U), {true, 0U}, {true, 6U}, {true, 7U}}) {
            stage t(rule("RETR", what, once));
            const auto how =
                listed > 0 ? qrftp::transfer_options{.listed_size = listed} : qrftp::transfer_options{};
            EXPECT_EQ(error_of([&] { t.open().fetch("f", t.local / "f", how); }), once ? "nothing" : error)
                << *what.bytes << ' ' << listed;
            EXPECT_EQ(10 * t.files() + long(fs::file_size(t.local / "f")),
                      once ? 26 : 25); // no other file, the new one or the old
            t.peer.on("RETR", what, 1);
            std::string got;
            EXPECT_EQ(error_of([&] { t.client->fetch("f", [&](auto bytes) { return got += bytes, true; }); }),
                      error)
                << *what.bytes;
            EXPECT_THAT("remote", StartsWith(got)); // what was taken is not given again
        }
}

TEST(ClientDialogue, FindsWhatIsThereWithoutTheCommandsForIt)
{
    for (const auto& features : {answer::reply("211-Features:\r\n MLST\r\n211 End"), unknown})
        for (const auto& refusal : {no, unknown, answer::reply("502 no")})
            for (const std::string refused : {"", "MLST", "SIZE", "MDTM", "MLST|SIZE|MDTM"}) {
                stage t({{"FEAT", features, 0}, {"CWD /home/u/f", no, 0}, {"CWD /home/u/none", no, 0}});
                for (const char* verb : {"MLST", "SIZE", "MDTM"})
                    t.peer.on(verb, refused.find(verb) == refused.npos ? answer{} : refusal);
                t.peer.body("MLSD /home/u", "type=file; f\r\ntype=dir; d\r\n");
                t.peer.body("MLSD /home/u/d", "");
                t.peer.body("LIST", "-rw-r--r-- 1 u u 1 Jan 01 2024 f\r\ndrwxr-xr-x 1 u u 0 Jan 01 2024 d\r\n");
                auto& c = t.open();
                const auto answers = [&](const char* name) {
                    return 4 * c.exists(name) + 2 * c.is_file(name) + c.is_folder(name);
                };
                EXPECT_THAT((std::vector{answers("f"), answers("d"), answers("none"), answers("/")}),
                            ElementsAre(6, 5, 0, 5))
                    << *features.bytes << *refusal.bytes << " to " << refused;
                t.peer.body("LIST", "");
                EXPECT_FALSE(c.is_file("none"));
            }
}

TEST(ClientDialogue, SendsNoMoreThanItNeeds)
{
    stage t({{"NOOP", answer::drop_after(), 0}, {"CWD /home/u/no", no, 0}});
    auto& c = t.open();
    EXPECT_EQ(c.list("").entries.size(), 1);
    EXPECT_EQ(error_of([&] { c.change_folder("no"); }), "Missing");
    EXPECT_EQ(c.absolute("../d/./e//"), "/home/d/e");
    EXPECT_EQ(c.change_folder("./x/../d/"), "/home/u/d");
    c.fetch("../f", [](auto) { return true; }), c.fetch("../f", t.local / "f", {.listed_size = 6});
    c.about(), t.peer.await_drop(), c.remove_file("x");
    EXPECT_EQ(t.sent(), "USER u|PASS p|PWD|FEAT|EPSV|TYPE A|MLSD ~|CWD ~no|MLST ~no|EPSV|MLSD ~|CWD ~d|CWD "
                        "~|EPSV|TYPE I|SIZE ~f|RETR ~f|EPSV|RETR ~f|"
                        "NOOP|USER u|PASS p|PWD|DELE ~d/x");
}

TEST(ClientDialogue, TellsLibcurlWhatKeepsATransferSafeAndFast)
{
    ledger::start();
    stage t;
    t.open();
    const auto lines = ledger::lines();
    for (const char* setting :
         {"BUFFERSIZE=2097152", "UPLOAD_BUFFERSIZE=2097152", "PROTOCOLS_STR=ftp,sftp", "SSL_VERIFYPEER=1",
          "SSL_VERIFYHOST=2", "FTP_SKIP_PASV_IP=1", "PROXY=", "LOW_SPEED_TIME=60", "NOSIGNAL=1"})
        EXPECT_THAT(lines, Contains(setting));
    EXPECT_THAT(lines, Not(Contains(StartsWith("CAINFO")))); // an empty one would stand in for the system's
}

TEST(ClientDialogue, SaysWhatTheServerSaidAndNoSecret)
{
    const auto evil = answer::reply("550 s3cret \x1b[31mno\x07");
    stage t({{"DELE", evil, 0}, {"PASS", evil, 3}});
    t.how.password = "s3cret";
    const auto remove = [&] { t.open().remove_file("f"); };
    const auto said =
        AllOf(Field(&qrftp::answer::reply, 550), Field(&qrftp::answer::words, "550 s3cret \x1b[31mno\x07"));
    EXPECT_THAT(remove, Throws<failure>(Field(&failure::said, said)));
    for (int login = 2; login <= 3; ++login)
        EXPECT_THAT(remove, ThrowsMessage<std::exception>(HasSubstr("(550 **** \\x1b[31mno\\x07)")));
    for (const char* url : {"ftp://u:Hide@h\r\n", "ftp://u:Hi@de@h:x/", "ftp://u:Hi/de@h/", "ftps://u:Hide@h/",
                            "ftp://u:Hide@h/%0d", "u:Hide@h/"})
        EXPECT_THAT([&] { qrftp::url::parse(url); },
                    ThrowsMessage<std::exception>(Not(ContainsRegex("Hi|de@|[\r\n]"))));
}

TEST(ClientDialogue, EndsWhenNothingHappensOrTheCallerWants)
{
    stage t({{"DELE /home/u/f", answer::silence(), 0}, {"STOR", answer::silence(), 0}});
    t.how.stall_timeout = 1s; // the peer's patience, after which the error is another one, is longer
    EXPECT_EQ(error_of([&] { t.open().remove_file("f"); }), "Stalled");
    qrftp::transfer_options options;
    for (const bool by_progress : {false, true}) {
        t.peer.clear_commands();
        t.how.cancelled = [&] { return !by_progress && !t.sent("STOR").empty(); };
        options.on_progress = [&](auto&) { return !by_progress || t.sent("STOR").empty(); };
        EXPECT_EQ(error_of([&] { t.open().send(t.local / "f", "t", options); }), "Cancelled");
        EXPECT_EQ(t.sent("STOR|DELE|RN"), "STOR ~T1|DELE ~T1");
    }
}

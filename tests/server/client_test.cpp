// The client against ProFTPD and OpenSSH: one list of cases for all protocols, judged by the files on both
// sides.

#include "relay.hpp"
#include "servers.hpp"

#include <qrftp/client.hpp>

#include <boost/algorithm/string.hpp>
#include <boost/range/adaptor/transformed.hpp>
#include <fl/i18n/ustring_to_utf8.hpp>
#include <gmock/gmock.h>
#include <set>
#include <sys/stat.h>

#pragma GCC diagnostic ignored "-Wmissing-field-initializers" // most options stay as they are
using namespace qrftp;
using testing::HasSubstr;
using namespace std::chrono;
namespace fs = std::filesystem;
using support::bytes, support::content;
using strings = std::vector<std::string>;
using files = std::map<std::string, std::string>;

namespace {

struct protocol {
    std::string name, scheme, port, user;
    tls_mode tls;
    friend void PrintTo(const protocol& of, std::ostream* out) { *out << of.name; }
};
const protocol protocols[] = {{"ftp", "ftp", "FTP_PORT", "USER", tls_mode::none},
                              {"ftps", "ftp", "FTP_PORT", "USER", tls_mode::strict},
                              {"sftp", "sftp", "SFTP_PORT", "USER", tls_mode::strict},
                              {"openssh", "sftp", "SSHD_PORT", "SSHD_USER", tls_mode::strict}};

std::string said; // by the last call's error

/// What comes of a call: its value, or its error as the type and what it is about.
std::string outcome_of(const std::function<std::string()>& call)
try {
    said.clear();
    return call();
} catch (const std::exception& thrown) {
    const auto& error = dynamic_cast<const foundation::core::except::IMsgIDException&>(thrown);
    said = thrown.what();
    EXPECT_TRUE(!boost::contains(said, error.identifier()) && boost::contains(said, " "))
        << "no sentence: " << said;
    const auto& about = error.arguments().at(0);
    const auto type = boost::replace_first_copy(boost::erase_first_copy(error.identifier(), "qrftp:client:"),
                                                "ZORBEL:io:common:file:", "file:");
    return type + ' ' +
           (about.index() == 1 ? std::get<1>(about) : fl::i18n::ustring_to_utf8(std::get<2>(about)));
}

/// The steps and the failures in one order, whatever that in which the jobs ended.
std::string text(const tree_result& of)
{
    static const char *const steps[] = {"+", "", "-", "-/"}, *const reasons[] = {"", " missing", " newer",
                                                                                 " size", " extra"};
    std::multiset<std::string> all(of.skipped.begin(), of.skipped.end());
    for (const auto& each : of.done)
        all.insert(steps[int(each.what)] + each.path + reasons[int(each.why)]);
    for (const auto& each : of.failures)
        all.insert("!" + each.path + ": " +
                   outcome_of([&]() -> std::string { std::rethrow_exception(each.error); }));
    return boost::join(all, "|");
}

const auto past = floor<seconds>(file_clock::now()) - hours(10000); // listings tell the day

void put(const fs::path& file, const std::string& all, fs::file_time_type time = past)
{
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << all;
    fs::last_write_time(file, time);
}

/// Every path below `root` with what the file there holds.
files tree(const fs::path& root)
{
    files all;
    for (const auto& each : fs::recursive_directory_iterator(root))
        all[each.path().lexically_relative(root)] = each.is_symlink()     ? "->"
                                                    : each.is_directory() ? "/"
                                                                          : content(each);
    return all;
}

/// Each test has an empty remote folder, in which its sessions stand, and an empty local one.
class Client : public testing::TestWithParam<protocol> {
protected:
    static void SetUpTestSuite() { servers_ = std::make_unique<support::servers>("proftpd sshd"); }
    static void TearDownTestSuite() { servers_.reset(); }
    void SetUp() override
    {
        if (servers_->missing())
            GTEST_SKIP() << "a server is not installed";
        ASSERT_TRUE(servers_->serve());
        umask(0); // the servers may be another user
        home_ = (*servers_)["HOME_DIR"];
        for (const auto& root : {there_ = home_ / "w", here_ = home_ / "../../local"})
            fs::create_directory(root);
    }
    void TearDown() override
    {
        for (const auto& root : {there_, here_})
            for (const auto& [path, _] : root.empty() ? files() : tree(root))
                EXPECT_FALSE(boost::contains(path, ".qrftp-")) << path << " is left";
        fs::remove_all(there_), fs::remove_all(here_);
    }
    long port() const { return servers_->port(GetParam().port); }
    bool sftp() const { return GetParam().scheme == "sftp"; }
    std::string url(long port) const { return GetParam().scheme + "://127.0.0.1:" + std::to_string(port); }
    options how() const
    {
        options all;
        all.user = (*servers_)[GetParam().user], all.tls = GetParam().tls,
        all.certificate_authorities = (*servers_)["CA_FILE"];
        all.known_hosts_file = (*servers_)["KNOWN_HOSTS"], all.host_keys = host_key_check::strict,
        all.stall_timeout = seconds(3);
        GetParam().name == "openssh" ? void(all.private_key = (*servers_)["KEY"])
                                     : void(all.password = (*servers_)["PASSWORD"]);
        return all;
    }
    session open(long relayed = 0) const
    {
        auto options = how();
        options.host_keys = relayed ? host_key_check::off : options.host_keys;
        session opened(url(relayed ? relayed : port()), options);
        opened.change_folder("w");
        return opened;
    }
    /// What comes of a call, value or error: remote names as from the remote folder, local ones behind "@".
    std::string outcome(const std::function<std::string()>& call) const
    {
        std::string got = outcome_of(call);
        boost::replace_all(got, here_.string() + "/", "@"), boost::erase_all(got, there_.string() + "/"),
            boost::replace_all(got, there_.string(), ".");
        return boost::replace_all_copy(boost::replace_all_copy(got, home_.string(), "~"), url(port()),
                                       "server");
    }
    std::string log_in(const auto&... changes) const
    {
        auto all = how();
        (changes(all), ...);
        return outcome([&] { return session(url(port()), all), ""; });
    }
    std::string run(session& s, const strings& step) const;
    /// Takes steps, "verb argument argument > outcome", one after the other.
    void check(session& s, const strings& steps) const
    {
        for (const auto& step : steps) {
            const auto arrow = step.find(" > ");
            strings words;
            boost::split(words, step.substr(0, arrow) + "   ", [](char c) { return c == ' '; });
            EXPECT_EQ(outcome([&] { return run(s, words); }), arrow == step.npos ? "" : step.substr(arrow + 3))
                << step;
        }
    }
    static inline std::unique_ptr<support::servers> servers_;
    fs::path home_, there_, here_;
};

std::string Client::run(session& s, const strings& step) const
{
    static const char* const kinds[] = {"file", "folder", "link", "other"};
    static const std::map<std::string, transfer_options> modes{{"", {}},
                                                               {"in-place", {.in_place = true}},
                                                               {"rest", {.resume = true}},
                                                               {"new", {.replace = false}},
                                                               {"dated", {.keep_time = true}}};
    const auto &a = step[1], &b = step[2];
    const auto& how = modes.at(step[3]);
    const std::map<std::string, std::function<std::string()>> verbs{
        {"cd", [&] { return s.change_folder(a); }},
        {"pwd", [&] { return s.working_folder(); }},
        {"list",
         [&] {
             return boost::join(s.list(a).entries | boost::adaptors::transformed(std::mem_fn(&entry::name)),
                                "|");
         }},
        {"stat", [&] { return kinds[int(s.stat(a).kind)]; }},
        {"is",
         [&] {
             return std::string(s.exists(a) ? "" : "nothing") + (s.is_file(a) ? "file" : "") +
                    (s.is_folder(a) ? "folder" : "");
         }},
        {"size", [&] { return std::to_string(s.file_size(a).value_or(999)); }},
        {"time",
         [&] {
             return std::to_string(s.modification_time(a) ==
                                   timestamp{file_clock::to_sys(past).time_since_epoch().count()});
         }},
        {"mkdir", [&] { return s.make_folder(a), ""; }},
        {"parents", [&] { return s.make_folder(a, true), ""; }},
        {"rm", [&] { return s.remove_file(a), ""; }},
        {"rmdir", [&] { return s.remove_folder(a), ""; }},
        {"rmtree", [&] { return s.remove_folder(a, true), ""; }},
        {"mv", [&] { return s.rename(a, b), ""; }},
        {"replace", [&] { return s.rename(a, b, true), ""; }},
        {"send", [&] { return s.send(here_ / a, b, how), ""; }},
        {"fetch", [&] { return s.fetch(a, here_ / b, how), ""; }},
    };
    return verbs.at(step[0])();
}

INSTANTIATE_TEST_SUITE_P(Servers, Client, testing::ValuesIn(protocols),
                         [](const auto& it) { return it.param.name; });

} // namespace

TEST_P(Client, LooksWhereItIsToldTo)
{
    for (const char* const name : {"f", "d/b", "d/B", "d/a", "e/.e"})
        put(there_ / name, "12345");
    put(there_ / "0", "");
    for (const std::string of : {"0", "d", "f"})
        fs::create_symlink(of, there_ / ("l" + of));
    auto s = open();
    check(s, {"cd no > Missing no",
              "cd f > NotFolder f",
              "cd ../denied > Denied ~/denied",
              "pwd > .",
              "list > 0|d|e|f|l0|ld|lf",
              "list d > B|a|b",
              "list e > .e",
              "list ld > B|a|b",
              "list no > Missing no",
              "list f > NotFolder f",
              "list ../denied > Denied ~/denied",
              "stat no > Missing no",
              "cd d > d",
              "list .. > 0|d|e|f|l0|ld|lf",
              "list > B|a|b",
              "cd ../ld/.. > .",
              "is f > file",
              "is d > folder",
              "is 0 > file",
              "is lf > file",
              "is ld > folder",
              "is l0 > file",
              "is d/a > file",
              "is ../denied > folder",
              "is / > folder",
              "is no > nothing",
              "is no/no > nothing",
              "is ../denied/x > nothing",
              "stat f > file",
              "stat d > folder",
              "stat lf > link",
              "stat ld > link",
              "size f > 5",
              "size lf > 5",
              "size 0 > 0",
              "time lf > 1"});
}

TEST_P(Client, TakesNamesOfAnyBytes)
{
    auto s = open();
    put(here_ / "f", "1");
    for (const std::string name : {"a\"b", "a\\b", "a'b", " a  b", "#%;type=a", "%41", "\xfe\x80", "\xff\xfe",
                                   "[*?]", "-rf", "~", "a:b@c"}) {
        const auto all = [&, in = name + '/' + name] {
            s.make_folder(name), s.send(here_ / "f", in), s.fetch(in, here_ / name);
            EXPECT_EQ(tree(there_), (files{{name, "/"}, {in, "1"}}));
            EXPECT_TRUE(content(here_ / name) == "1" && s.stat(in).name == name &&
                        s.list(name).entries.at(0).name == name)
                << name;
            s.rename(in, in + name), s.remove_file(in + name), s.remove_folder(name);
            return "";
        };
        const bool telnet =
            !sftp() && name.front() == '\xff'; // FTP's control connection is a Telnet connection
        EXPECT_EQ(outcome(all), telnet                      ? "InvalidName \"" + name + '"'
                                : !sftp() && name == "[*?]" ? "Denied " + name
                                                            : "");
        EXPECT_TRUE(fs::is_empty(there_)) << name;
    }
    check(s, {"mkdir a\r\nDELE > InvalidName the name"});
}

TEST_P(Client, RefusalsTellWhy)
{
    for (const char* const name : {"f", "g", "h", "d/e/x", "t/in", "secret"})
        put(there_ / name, name), put(here_ / name, "mine");
    fs::create_directory_symlink("../d", there_ / "t/ld"), fs::permissions(there_ / "secret", fs::perms::none);
    files there = tree(there_), here = tree(here_);
    auto s = open();
    check(s, {"mkdir no/x > Missing no",
              "mkdir d > Exists d",
              "mkdir ../denied/x > Denied ~/denied/x",
              "parents a/b/c",
              "parents a/b/c",
              "rmtree a",
              "rm no > Missing no",
              "rm d > IsFolder d",
              "rm ../denied/x > Denied ~/denied/x",
              "rmdir no > Missing no",
              "rmdir f > NotFolder f",
              "rmdir d > NotEmpty d",
              "rmtree t/ld > NotFolder t/ld",
              "rmtree no > Missing no",
              "mv f g > Exists g",
              "replace f d > IsFolder d",
              "mv no x > Missing no",
              "replace no g > Missing no",
              "mv f no/x > Missing no",
              "mv f ../denied/x > Denied ~/denied/x",
              "send no g > file:NoSuchFile @no",
              "send f d > IsFolder d",
              "send f no/x > Missing no",
              "send f ../denied/x > Denied ~/denied/x",
              "send f secret in-place > Denied secret",
              "send f h new > Exists h",
              "fetch no f > Missing no",
              "fetch d f > IsFolder d",
              "fetch ../denied/x f > Denied ~/denied/x",
              "fetch secret f > Denied secret",
              "fetch g f new > Exists @f",
              "fetch g no/x > file:NoSuchFile @no/x",
              "fetch g /dev/full > file:DiskFull /dev/full"});
    EXPECT_EQ(outcome([&] { return s.fetch("g", [](auto) { return false; }), ""; }), "Cancelled g");
    EXPECT_TRUE(tree(there_) == there && tree(here_) == here);
    check(s, {"replace f g", "rmtree t"});
    EXPECT_EQ(
        tree(there_),
        (files{{"d", "/"}, {"d/e", "/"}, {"d/e/x", "d/e/x"}, {"g", "f"}, {"h", "h"}, {"secret", "secret"}}));
}

TEST_P(Client, TransfersKeepEveryByteAndTime)
{
    auto s = open();
    const std::string all = bytes(3'000'000);
    for (const std::size_t size : {all.size(), std::size_t{(2 << 20) + 1}, std::size_t{1}, std::size_t{0}})
        for (const std::string how : {"", " in-place"}) {
            put(here_ / "up", all.substr(0, size));
            check(s, {"send up f" + how, "fetch f down" + how});
            EXPECT_TRUE(content(there_ / "f") == all.substr(0, size) &&
                        content(here_ / "down") == all.substr(0, size))
                << size << how;
        }
    put(here_ / "all", all), put(there_ / "all", all);
    for (const std::size_t there : {std::size_t{0}, std::size_t{1000}, all.size(), all.size() + 1}) {
        const std::string part(there, 'x'), whole = part + all.substr(std::min(there, all.size()));
        put(here_ / "down", part), put(there_ / "up", part);
        const auto ends = [&](const std::string& name) {
            return " rest" + (there > all.size() ? " > CannotResume " + name : "");
        };
        check(s, {"send all up" + ends("up"), "fetch all down" + ends("@down")});
        EXPECT_TRUE(content(there_ / "up") == whole && content(here_ / "down") == whole) << there;
    }
    check(s, {"send all up", "fetch all down"});
    EXPECT_TRUE(fs::last_write_time(there_ / "up") > past && fs::last_write_time(here_ / "down") > past);
    check(s, {"send all up dated", "fetch all down dated"});
    EXPECT_TRUE(fs::last_write_time(there_ / "up") == past && fs::last_write_time(here_ / "down") == past);
}

TEST_P(Client, TransfersCanBeWatchedSlowedAndCancelled)
{
    auto s = open();
    put(here_ / "new", bytes(1 << 20)), put(there_ / "new", bytes(1 << 20));
    const transfer_options stop{.rate_limit = 4 << 20,
                                .on_progress = [](const auto& now) { return now.bytes == 0; }};
    for (const bool there : {false, true}) {
        EXPECT_EQ(outcome([&] { return s.send(here_ / "new", "old", stop), ""; }), "Cancelled old");
        EXPECT_EQ(outcome([&] { return s.fetch("new", here_ / "old", stop), ""; }), "Cancelled new");
        EXPECT_TRUE(fs::exists(there_ / "old") == there && fs::exists(here_ / "old") == there);
        EXPECT_TRUE(!there || (content(there_ / "old") == "old" && content(here_ / "old") == "old"));
        put(here_ / "old", "old"), put(there_ / "old", "old");
    }
    for (const bool sends : {true, false}) {
        std::vector<progress> seen;
        const auto began = steady_clock::now();
        const transfer_options slow{.rate_limit = 4 << 20,
                                    .on_progress = [&](const auto& now) { return seen.push_back(now), true; }};
        sends ? s.send(here_ / "new", "old", slow) : s.fetch("new", here_ / "old", slow);
        EXPECT_GT(steady_clock::now() - began, milliseconds(120)) << sends;
        EXPECT_GT(seen.size(), 2U) << sends;
        EXPECT_TRUE(seen.back().bytes == 1 << 20 && seen.back().total == 1 << 20) << sends << seen.back().bytes;
    }
}

TEST_P(Client, TreesArriveWhole)
{
    for (const char* const name : {"t/a/b/x", "t/a/y.txt", "t/f.txt", "t/g h", "out/o"})
        put(here_ / name, name);
    fs::create_directory(here_ / "t/empty");
    const files plain = tree(here_ / "t");
    files linked{{"lf", "t/f.txt"}, {"ld", "/"}, {"ld/x", "t/a/b/x"}};
    linked.insert(plain.begin(), plain.end());
    auto s = open();
    using how = const tree_options&;
    const auto send = [&](auto from, auto to, how with) {
        return outcome([&] { return text(send_tree(s, here_ / from, to, with)); });
    };
    const auto fetch = [&](auto from, auto to, how with) {
        return outcome([&] { return text(fetch_tree(s, from, here_ / to, with)); });
    };
    const std::string folders = "+ missing|+a missing|+a/b missing|+empty missing",
                      copies = "|a/b/x|a/y.txt|f.txt|g h";
    const tree_options jobs{.jobs = 3}, follow{.follow_links = true},
        globs{.include = {"*.txt"}, .exclude = {"a/**"}},
        in_place{.transfer = {.in_place = true}, .include = {"f.txt"}}, on{.jobs = 3, .keep_going = true};
    EXPECT_EQ(send("t", "t", jobs), folders + copies);
    for (const auto& in : {here_ / "t", there_ / "t"})
        fs::create_symlink("f.txt", in / "lf"), fs::create_symlink("a/b", in / "ld");
    EXPECT_EQ(send("t", "k", {}) + send("t", "g", globs), folders + copies + "+ missing|f.txt");
    EXPECT_EQ(fetch("t", "k", {}) + fetch("t", "g", globs), folders + copies + "+ missing|f.txt");
    send("t", "l", follow), fetch("t", "l", follow);
    for (const auto& in : {here_, there_})
        EXPECT_TRUE(tree(in / "k") == plain && tree(in / "l") == linked &&
                    tree(in / "g") == (files{{"f.txt", "t/f.txt"}}));
    EXPECT_EQ(send("no", "no", {}) + ", " + fetch("no", "no", {}), "file:NoSuchFile @no, Missing no");
    put(here_ / "w/x", ""), fs::create_directory_symlink("../out", here_ / "w/a"),
        fs::create_symlink("../out/o", here_ / "w/f.txt");
    EXPECT_EQ(fetch("t", "w", {}) + ", " + fetch("t", "w", in_place), "UnsafeName @w/a, UnsafeName @w/f.txt");
    EXPECT_EQ(tree(here_ / "out"), (files{{"o", "out/o"}}));

    fs::permissions(there_ / "t/a/b", fs::perms::none), fs::permissions(there_ / "t/g h", fs::perms::none);
    EXPECT_EQ(fetch("t", "x", {}), "Denied t/a/b");
    EXPECT_EQ(fetch("t", "y", on), "!a/b: Denied t/a/b|!g h: Denied t/g h|" + folders + "|a/y.txt|f.txt");
    EXPECT_EQ(send("k", "t", {}), "Denied t/a/b/x");
    EXPECT_EQ(send("k", "t", on), "!a/b/x: Denied t/a/b/x|" + folders + "|a/y.txt|f.txt|g h");
    EXPECT_EQ(
        tree(here_ / "y"),
        (files{{"a", "/"}, {"a/b", "/"}, {"a/y.txt", "t/a/y.txt"}, {"empty", "/"}, {"f.txt", "t/f.txt"}}));
    fs::permissions(there_ / "t/a/b", fs::perms::all);
}

TEST_P(Client, SynchronisesWhatDiffers)
{
    auto s = open();
    for (const auto way : {direction::send, direction::fetch}) {
        const fs::path from = (way == direction::send ? here_ : there_) / "s",
                       to = (way == direction::send ? there_ : here_) / "s";
        const auto recent = floor<seconds>(file_clock::now()) - hours(1); // and the minute
        fs::remove_all(from), fs::remove_all(to);
        put(from / "a/old", "1"), put(from / "a/new", "1", recent), put(from / "b", "1"), put(from / "c", "1");
        sync_options how;
        how.transfer.keep_time = true, how.exclude = {"*.keep"};
        const auto sync = [&] {
            return outcome([&] { return text(synchronise(s, here_ / "s", "s", way, how)); });
        };
        EXPECT_EQ((strings{sync(), sync()}),
                  (strings{"+ missing|+a missing|a/new missing|a/old missing|b missing|c missing", ""}));
        EXPECT_EQ(tree(to), tree(from));
        put(from / "a/old", "2", past + seconds(1)), put(from / "a/new", "2", recent + seconds(1)),
            put(from / "b", "33");
        put(from / "d", "4"), put(to / "c", "5", past + seconds(1)), put(to / "e/f/g", "6"),
            put(to / "h/x.keep", "7"), put(from / "y.keep", "8");
        const std::string changes = "a/new newer|a/old newer|b size|d missing",
                          extra = "-/e extra|-/e/f extra|-e/f/g extra|";
        const files before = tree(to);
        how.dry_run = true;
        EXPECT_EQ(sync(), changes);
        how.remove_extra = true;
        EXPECT_TRUE(sync() == extra + changes && tree(to) == before);
        how.dry_run = false;
        EXPECT_EQ((strings{sync(), sync()}), (strings{extra + changes, ""}));
        files after = tree(from);
        after.erase("y.keep"), after["c"] = "5", after.insert({{"h", "/"}, {"h/x.keep", "7"}});
        EXPECT_EQ(tree(to), after);
    }
}

TEST_P(Client, LoginsAreRefusedForAReason)
{
    const auto wrong = [](options& all) {
        all.private_key.empty() ? void(all.password = "wrong")
                                : void(all.private_key = servers_->path() + "/host_key");
    };
    EXPECT_EQ(log_in() + log_in(wrong), "LoginRefused server");
    EXPECT_EQ(outcome([this] { return session(url(1), how()), ""; }), "NoConnection " + url(1));
    const auto trust = [this](const std::string& file) {
        return log_in([&](options& all) { all.certificate_authorities = file; });
    };
    if (GetParam().name == "ftps") {
        EXPECT_EQ(trust("") + trust("/no"), "CertificateRefused serverfile:NoSuchFile /no");
    }
    if (!sftp())
        return;
    const fs::path file = here_ / "new/known";
    const auto known = [&](options& all) { all.known_hosts_file = file; };
    const auto accept = [](options& all) { all.host_keys = host_key_check::accept_new; };
    const auto decline = [](options& all) { all.confirm_host_key = [](auto&) { return false; }; };
    const std::string host = "[127.0.0.1]:" + std::to_string(port()),
                      key = content(servers_->path() + "/host_key.pub"),
                      other = boost::trim_copy(content((*servers_)["KEY_PUB"]));
    EXPECT_EQ(log_in(known) + log_in(known, accept, decline),
              "HostKeyUnknown " + host + "HostKeyUnknown " + host);
    EXPECT_FALSE(fs::exists(file));
    for (const auto& there : {std::string(), "# mine\n127.0.0.1 " + other, "[127.0.0.1]:1 " + other + '\n'}) {
        there.empty() ? fs::create_directories(here_), void() : put(file, there);
        EXPECT_EQ((strings{log_in(known, accept), log_in(known)}), (strings{"", ""}));
        EXPECT_EQ(content(file), boost::trim_copy(there) + (there.empty() ? "" : "\n") + host + ' ' +
                                     key.substr(0, key.rfind(' ')) + '\n');
    }
    put(file, host + ' ' + other);
    EXPECT_EQ(log_in(known, accept), "HostKeyChanged " + host);
    EXPECT_EQ(content(file), host + ' ' + other);
    // This libssh2 and newer servers agree on no RSA signature: the error says what to do instead.
    put(file, host + " ssh-rsa AAAAB3NzaC1yc2EAAAADAQABAAAAAQM=");
    EXPECT_THAT((log_in(known), said), HasSubstr("only an RSA key"));
    EXPECT_EQ(std::system(("ssh-keygen -q -t rsa -m PEM -N '' -f " + (here_ / "rsa").string()).c_str()), 0);
    EXPECT_THAT((log_in([&](options& all) { all.private_key = here_ / "rsa"; }), said),
                HasSubstr("an Ed25519 or ECDSA key"));
}

TEST_P(Client, HostKeysThatAreNotKnownGetNoLogin)
{
    if (!sftp())
        return;
    const fs::path file = here_ / "known", log = servers_->path() + "/sftp.log";
    const auto key_of = [](const std::string& text) { return text.substr(0, text.rfind(' ')); };
    const std::string host = "[127.0.0.1]:" + std::to_string(port()) + ' ',
                      key = key_of(content(servers_->path() + "/host_key.pub")),
                      other = key_of(content((*servers_)["KEY_PUB"])),
                      ecdsa = "ecdsa-sha2-nistp256 AAAAE2VjZHNhLXNoYTItbmlzdHAyNTY=",
                      shows =
                          "it shows ssh-ed25519 " + known_hosts("h " + key).keys_of("h").at(0).fingerprint();
    const std::string unknown = "is not known: " + shows + ", and " + file.string() + " has none",
                      revoked = "has been revoked: " + shows, changed = "is not the one that is known: ";
    const std::pair<std::string, std::string> rows[] = {
        {host + key, ""},
        {host + other + '\n' + host + key, ""},
        {"", unknown},
        {"127.0.0.1 " + key, unknown},
        {host + key.substr(0, key.size() - 3), unknown},
        {"@cert-authority * " + key, unknown},
        {"@revoked * " + other, unknown},
        {"@revoked " + host + key, revoked},
        {"@revoked * " + key, revoked},
        {host + key + "\n@revoked * " + key, revoked},
        {host + other, changed + shows + ", and " + file.string() + " has another"},
        {host + ecdsa, changed + "it shows no ecdsa-sha2-nistp256 key"}};
    for (const auto& [lines, sentence] : rows)
        for (const std::string hash : {"ssh-keygen -q -H -f ", "test -f "}) {
            SCOPED_TRACE(hash + lines);
            put(file, lines + '\n');
            EXPECT_EQ(std::system((hash + file.string() + " >/dev/null 2>&1").c_str()), 0);
            const std::size_t before = content(log).size();
            log_in([&](options& all) { all.known_hosts_file = file; });
            EXPECT_TRUE(boost::contains(said, sentence) && said.empty() == sentence.empty()) << said;
            // Every login, refused or not, leaves a word in the log of this server.
            EXPECT_EQ(boost::contains(content(log).substr(before), "userauth"),
                      said.empty() && GetParam().name == "sftp");
        }
}

TEST_P(Client, LostConnectionsAreOpenedAgainWhereTheyWere)
{
    support::relay relay(port());
    auto s = open(relay.port());
    put(home_ / "x", "0"), put(there_ / "x", "1"), put(there_ / "d/x", "2"), put(there_ / "d/y", "3"),
        put(here_ / "f", "4");
    s.change_folder("d");
    for (const std::string step :
         {"list > x|y", "rm x", "mv y z", "mkdir e", "send f e/g", "fetch z z", "cd e > d/e"}) {
        const int before = relay.connections();
        relay.drop(), check(s, {step});
        EXPECT_EQ(relay.connections(), before + 1) << step;
    }
    EXPECT_EQ(tree(there_), (files{{"x", "1"}, {"d", "/"}, {"d/z", "3"}, {"d/e", "/"}, {"d/e/g", "4"}}));
    EXPECT_EQ(content(home_ / "x") + content(here_ / "z"), "03");
    const std::string all = bytes(3'000'000);
    put(here_ / "new", all), put(there_ / "d/e/new", all);
    for (const bool sends : {true, false})
        for (const bool in_place : {false, true}) {
            int before = relay.connections(), drops = 0;
            const auto cut = [&](const progress& now) {
                return now.bytes == 0 || drops++ > 0 || (relay.drop(), true);
            };
            const transfer_options how{.in_place = in_place, .rate_limit = 16 << 20, .on_progress = cut};
            EXPECT_EQ(outcome([&] {
                          return sends ? s.send(here_ / "new", "old", how) : s.fetch("new", here_ / "old", how),
                                 "";
                      }),
                      "");
            EXPECT_TRUE(drops > 0 && relay.connections() > before &&
                        content(sends ? there_ / "d/e/old" : here_ / "old") == all)
                << sends;
        }
    fs::remove(home_ / "x");
}

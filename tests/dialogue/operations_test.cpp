// Every operation on the wire: the commands it sends, the options it sets and puts back, and what it makes of a
// server that misbehaves at any step.

#include "core_stage.hpp"
#include "ledger.hpp"

#include <foundation/core/except/Exception.hpp>
#include <gmock/gmock.h>

#include <chrono>
#include <thread>

using namespace support;
using namespace zorbel::io::common::file;

namespace {

const std::string home = "ftp://127.0.0.1//home/u/";
const fl::ustring local = u"local";

/// Since 8.22 libcurl looks whether a connection has ended only a second after the last time.
void await_look()
{
    if (curl_version_info(CURLVERSION_NOW)->version_num >= 0x081600)
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
}

/// A stage whose connection is open: cold, it was lost behind the login.
struct stage : core_stage {
    explicit stage(bool cold = false, std::chrono::milliseconds patience = std::chrono::seconds(5))
        : core_stage(patience)
    {
        if (cold)
            peer.on("PWD", answer::drop_after(), 3); // the last command of the login
        open();
        if (cold) {
            peer.await_drop();
            await_look();
        }
        next_step = static_cast<int>(peer.commands().size()) + 1;
        peer.clear_commands();
        ledger::start();
    }
    int next_step = 0;
};

struct Operations : testing::TestWithParam<operation> {
    const operation& op = GetParam();
};

} // namespace

TEST_P(Operations, SendsItsCommandsAndSetsItsOptionsOnAWarmAndAColdConnection)
{
    // The quote commands of the first request run in the login folder, and only then does the connection go
    // where it stood; every other operation goes there first.
    const std::string walk = "CWD /|CWD home|CWD u";
    std::string sent = "USER u|PASS p|PWD|" + op.commands;
    if (op.commands.find(walk) == std::string::npos && op.settings.find("|QUOTE=") == std::string::npos)
        sent.insert(sent.find(op.commands), walk + "|");
    else if (op.commands.find(walk) == std::string::npos)
        sent.insert(op.commands.starts_with("PWD|") ? sent.find("PWD", sent.find("PWD") + 1) + 3 : sent.size(),
                    "|" + walk);
    for (const bool cold : {false, true}) {
        stage s(cold);
        EXPECT_EQ(error_of([&] { op.call(s.connection); }), texts{"nothing"});
        EXPECT_EQ(joined(s.peer.commands()), cold ? sent : op.commands);
        EXPECT_EQ(expect_restored(ledger::lines(), op.name.ends_with("cd") ? home + "sub/" : home),
                  op.settings);
    }
}

TEST_P(Operations, SurvivesEveryFaultAtEveryStep)
{
    const std::pair<const char*, answer> faults[] = {
        {"drop", answer::drop()},
        {"421", answer::reply("421 closing").then_drop()},
        {"450", answer::reply("450 busy")},
        {"550", answer::reply("550 no")},
        {"553", answer::reply("553 no")},
        {"554", answer::reply("554 no")},
        {"garbage", answer::raw(std::string("\0\xff garbage\r\n\r\nmore", 18))},
        {"long line", answer::reply("2" + std::string(100000, '5'))},
        {"cut", answer::raw("25").then_drop()},
        {"silence", answer::silence()}};
    for (const auto& [name, fault] : faults) {
        for (int n = 0;; ++n) {
            SCOPED_TRACE(testing::Message() << name << " at step " << n);
            stage s(false, std::chrono::seconds(1)); // is_file has its own limit: there the peer gives up
            core::transfer_timeout(s.connection, 150);
            ledger::start();
            s.peer.at(s.next_step + n, fault);
            const auto error = error_of([&] { op.call(s.connection); }).front();
            s.peer.at(s.next_step + n, {}); // if it was not met
            const bool met = s.peer.steps() > s.next_step + n;
            if (met && fault.drops)
                s.peer.await_drop();
            const texts lines = ledger::lines();
            core::transfer_timeout(s.connection, 0);
            EXPECT_THAT("nothing " + op.errors, testing::HasSubstr(error));
            const bool moved = op.name == "unsafe_cd" || (op.name == "cd" && error != "NoSuchDirectory");
            // is_folder does not go back when the PWD behind its change of folder fails.
            const auto probed = "URL=" + home + "s%20p/";
            const bool stays = op.name == "is_folder" && std::ranges::count(lines, "URL=" + home) == 0 &&
                               lines.front() == probed;
            expect_restored(lines, home + (moved ? "sub/" : stays ? "s%20p/" : ""));
            EXPECT_NO_THROW(core::pwd(s.connection));
            if (!met)
                break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Ftp, Operations, testing::ValuesIn(ftp_operations(local)),
                         [](const auto& it) { return it.param.name; });

TEST(Outcome, OfAReplyIsTheStatedErrorWithItsArguments)
{
    const std::tuple<const char*, const char*, std::function<void(core::curl_ptr&)>, texts> rows[] = {
        {"CWD sub",
         "550 no",
         [](auto& c) { core::cd(c, core::fullurl(c, "sub", false)); },
         {"NoSuchDirectory", home + "sub"}},
        {"PWD",
         "550 no",
         [](auto& c) { core::pwd(c); },
         {"InternalError", "PWD", "Could not get PWD response"}},
        {"PWD",
         "250 \"/a\"",
         [](auto& c) { core::pwd(c); },
         {"InternalError", "PWD", "Could not match any server responses to the PWD command: 250 \"/a\"\r\n"}},
        {"SYST", "502 no", [](auto& c) { EXPECT_EQ(core::syst(c), ""); }, {"nothing"}},
        {"CWD a", "550 no", [](auto& c) { EXPECT_FALSE(core::is_folder(c, "a")); }, {"nothing"}},
        {"LIST", "550 no", [](auto& c) { EXPECT_EQ(core::list(c, "x"), ""); }, {"nothing"}},
        {"MKD", "553 no", [](auto& c) { core::create_folder(c, "d"); }, {"InternalError", "mkdir", "d"}},
        {"RMD", "550 no", [](auto& c) { core::delete_folder(c, "/d"); }, {"FolderNotEmpty", "/d"}},
        {"RMD", "450 no", [](auto& c) { core::delete_folder(c, "d"); }, {"FTPError", "450"}},
        {"RMD", "553 no", [](auto& c) { core::delete_folder(c, "d"); }, {"FTPError", "553"}},
        {"RETR",
         "550 no",
         [](auto& c) { core::receive_file(c, u"f", local, false); },
         {"FileUnavailable", "f"}},
        {"RETR", "451 no", [](auto& c) { core::receive_file(c, u"f", local, false); }, {"FTPError", "451"}},
        {"RETR", "553 no", [](auto& c) { core::receive_file(c, u"f", local, false); }, {"FTPError", "553"}},
        {"STOR", "553 no", [](auto& c) { core::send_file(c, local, u"g", false); }, {"UploadFailed", "local"}},
        {"RNFR", "499 no", [](auto& c) { core::rename_remote_file(c, u"a", u"b"); }, {"nothing"}},
        {"RNFR", "500 no", [](auto& c) { core::rename_remote_file(c, u"a", u"b"); }, {"FTPError", "500"}},
        {"RNTO", "553 no", [](auto& c) { core::rename_remote_file(c, u"a", u"b"); }, {"FTPError", "553"}},
        {"RNTO", "554 no", [](auto& c) { core::rename_remote_file(c, u"a", u"b"); }, {"nothing"}},
        {"DELE",
         "450 no",
         [](auto& c) { core::delete_remote_file(c, u"\u00e4"); },
         {"DeleteFailed", "\xc3\xa4"}},
        {"statvfs", "500 no", [](auto& c) { EXPECT_TRUE(core::is_file(c, u"a")); }, {"nothing"}},
    };
    for (const auto& [line, reply, call, error] : rows) {
        stage s;
        s.peer.on(line, answer::reply(reply));
        EXPECT_EQ(error_of([&] { call(s.connection); }), error) << line << " -> " << reply;
    }
}

TEST(Outcome, OfALocalFaultIsTheStatedErrorWithItsArguments)
{
    using Call = FaultyFileSystem::Call;
    const auto fail = [](auto error) {
        return std::make_exception_ptr(foundation::core::except::Exception(std::move(error)));
    };
    namespace file = ZORBEL::io::common::file;
    const std::tuple<Call, std::exception_ptr, std::string, std::string> rows[] = {
        {Call::open, fail(file::PermissionDenied(u"other")), "PermissionDenied|local",
         "PermissionDenied|other"},
        {Call::open, fail(file::NoSuchFile(local)), "NotFound|local", "NoSuchFile|local"},
        {Call::size, fail(file::PermissionDenied(local)), "PermissionDenied|local", "nothing"},
        {Call::size, std::make_exception_ptr(1), "NotFound|local", "nothing"},
        {Call::read, fail(file::FileError(local, "I/O")), "UploadFailed|local", "nothing"},
        {Call::write, fail(file::DiskFull(local)), "nothing", "FTPError|150"},
        {Call::close, fail(file::DiskFull(local)), "DiskFull|local", "DiskFull|local"}};
    stage s;
    for (const auto& [call, failure, sending, receiving] : rows) {
        s.faults->fail(call, 1, failure);
        EXPECT_EQ(joined(error_of([&] { core::send_file(s.connection, local, u"g", false); })), sending);
        s.faults->fail(call, 1, failure);
        EXPECT_EQ(joined(error_of([&] { core::receive_file(s.connection, u"f", local, false); })), receiving);
        s.faults->fail(call, 0, nullptr);
    }
    s.peer.clear_commands();
    EXPECT_EQ(error_of([&] { core::receive_file(s.connection, u"\xd800", local, false); }).front(),
              "InvalidText");
    EXPECT_EQ(error_of([&] { core::rename_remote_file(s.connection, u"a", u"\xdc00"); }).front(),
              "InvalidText");
    EXPECT_EQ(s.peer.commands(), texts{}) << "nothing is sent for a name that is no text";
}

TEST(Outcome, OfHalfACommandListOrARefusedSftpRemovalIsAsStated)
{
    stage s;
    ledger::fail_append(2);
    EXPECT_THROW(core::rename_remote_file(s.connection, u"a", u"b"), std::bad_alloc);
    EXPECT_EQ(s.peer.commands(), texts{}) << "half of a rename must not be sent";
    s.peer.on("rmdir", answer::reply("550 no"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(error_of([&] { core::sftp_delete_folder(s.connection, "/d"); }),
              (texts{"RemoveFolderFailed", "/d"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nlibcurl: (21) Quote command returned error\n");
}

TEST(Transfer, TranslatesLineEndsAndSaysWhatWasLost)
{
    stage s;
    s.memory->put(u"text", "a\nb\n");
    core::send_file(s.connection, u"text", u"t", true);
    EXPECT_EQ(s.peer.uploads()["t"], "a\r\nb\r\n");
    s.peer.body("LIST", "drwx x\r\n");
    s.peer.body("NLST", "a\r\n\r\nb\n\nc");
    EXPECT_EQ(core::list(s.connection, "-a x"), "drwx x\n");
    EXPECT_EQ(core::dir(s.connection, ""), (texts{"a", "b", "c"}));
    s.peer.on("LIST", answer::transfer(3, "426 cut\r\n"));
    EXPECT_EQ(core::list(s.connection, ""), "drw");
    s.peer.on("RETR", answer::transfer(2, "226 done\r\n"));
    EXPECT_EQ(error_of([&] { core::receive_file(s.connection, u"f", u"copy", false); }),
              (texts{"FTPError", "150"}));
    EXPECT_EQ(s.memory->get(u"copy"), "re") << "what arrived stays";
}

TEST(Request, ChainsNestsAndRestoresUrlsInTheOrderOfTheirSetting)
{
    stage s;
    {
        core::scoped_request request(s.connection);
        request.seturl(home + "a/").setopt(CURLOPT_NOBODY, 1L, 0).seturl(home + "b/");
        request.perform();
        EXPECT_EQ(request.request_post_quoted(core::slist("NOOP")).first, CURLE_OK);
        ledger::start();
    }
    // The URL of the first call first; what it saved was the home folder, what the second one saved was "a".
    EXPECT_EQ(ledger::lines(), (texts{"NOBODY=0", "URL=" + home, "NOBODY=1", "perform", "NOBODY=0",
                                      "URL=" + home + "a/", "NOBODY=1", "perform", "NOBODY=0"}));
    EXPECT_EQ(s.peer.commands(), (texts{"CWD /", "CWD home", "CWD u", "CWD b", "NOOP", "CWD /", "CWD home",
                                        "CWD u", "CWD /", "CWD home", "CWD u", "CWD a"}));
}

// Transfers that go wrong: what is on both sides afterwards, and which commands led there.

#include "client_stage.hpp"

#include <fcntl.h>
#include <future>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace support;
using namespace std::literals;
using namespace testing;
using qrftp::transfer_options;
using qrftp::url_scheme;
namespace fs = std::filesystem;

namespace {

const auto denied = answer::reply("550 no");
const auto unknown = answer::reply("500 unknown");
const auto bad_name = answer::reply("553 no");

/// Sends "f" as "t", which exists, or as "n", which does not.
struct upload_row {
    const char* target;
    std::vector<rule> rules;
    std::string sent;
    std::string error{};
};

} // namespace

TEST(Transfer, UploadsAllOrNothing)
{
    const auto renaming = "RNTO /home/u/t"s;
    const auto stored = "STOR ~T1|RNFR ~T1|RNTO ~t"s;
    const auto aside = stored + "|RNFR ~t|RNTO ~O1|RNFR ~T1|RNTO ~t"; // the old file goes out of the way
    const auto back = aside + "|RNFR ~O1|RNTO ~t|DELE ~T1";           // and back
    const upload_row rows[] = {
        {"t", {}, stored},
        {"t", {{"SIZE", unknown}}, stored},
        {"n", {{"RNTO", denied}}, "STOR ~T1|RNFR ~T1|RNTO ~n|DELE ~T1", "PermissionDenied"},
        {"n", {{"RNTO", bad_name}}, "STOR ~T1|RNFR ~T1|RNTO ~n|DELE ~T1", "PermissionDenied"},
        {"t", {{renaming, bad_name, 1}}, aside + "|DELE ~O1"},
        {"t", {{renaming, bad_name, 1}, {renaming, denied, 2}}, back, "PermissionDenied"},
        {"t",
         {{renaming, denied}, {"RNFR /home/u/t", denied}},
         stored + "|RNFR ~t|DELE ~T1",
         "PermissionDenied"},
        {"t", {{"STOR", bad_name, 1}}, "STOR ~T1|STOR ~T2|RNFR ~T2|RNTO ~t"},
        {"t", {{"STOR", bad_name}}, "STOR ~T1|STOR ~T2|DELE ~T2", "PermissionDenied"},
        {"t", {{"STOR", answer::transfer(3, "452 full\r\n")}}, "STOR ~T1|DELE ~T1", "DiskFull"},
        {"t", {{"SIZE", answer::reply("213 1")}}, "STOR ~T1|DELE ~T1", "SizeMismatch"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.sent + " " + row.error);
        client_stage t(row.rules);
        const files before{{"/home", "/"}, {"/home/u", "/"}, {"/home/u/t", "old"}};
        t.peer.keep(before);
        EXPECT_EQ(error_of_client([&] { t.open().send(t.local / "f", row.target); }), row.error);
        EXPECT_EQ(t.sent({"STOR", "DELE", "RNFR", "RNTO"}), row.sent);
        EXPECT_TRUE(row.error.empty() || t.peer.kept() == before) << PrintToString(t.peer.kept());
    }
}

TEST(Transfer, FetchesAllOrNothing)
{
    const auto cut = [](std::size_t limit, const std::string& last) {
        return answer::transfer(limit, last).then_drop();
    };
    struct row {
        answer what;
        std::string error;
    };
    for (const auto& [what, error] : {row{answer::transfer(3, "226 done\r\n"), "SizeMismatch"},
                                      {cut(3, "426 cut\r\n"), "SizeMismatch"},
                                      {cut(whole, "451 cut\r\n"), "SizeMismatch"},
                                      {cut(3, ""), "SizeMismatch"},
                                      {cut(whole, "421 bye\r\n"), "ConnectionLost"},
                                      {cut(whole, ""), "ConnectionLost"}})
        for (const auto& [once, listed] :
             {std::pair(false, std::uint64_t{0}), {true, 0}, {true, 6}, {true, 7}}) {
            SCOPED_TRACE(*what.bytes + " " + error + (once ? " once, listed with " : " ") +
                         std::to_string(listed));
            client_stage t({{"RETR", what, once ? 1 : 0}});
            const transfer_options options{.listed_size = listed > 0 ? std::optional(listed) : std::nullopt,
                                           .retries = once ? 1U : 0U};
            const auto got = error_of_client([&] { t.open().fetch("f", t.local / "f", options); });
            EXPECT_EQ(got.empty(), once) << got;
            EXPECT_EQ(files_in(t.local).at("f"), once ? "remote" : "local");
            EXPECT_THAT(leftovers_in(t.local), IsEmpty());
            t.peer.on("RETR", what, 1);
            std::string piece;
            const auto take = [&](std::string_view bytes) {
                piece += bytes;
                return true;
            };
            EXPECT_NE(error_of_client([&] { t.client->fetch("f", take, {.retries = 0}); }), "");
            EXPECT_THAT("remote", StartsWith(piece)); // what was given away is not given again
        }
}

TEST(Transfer, BelievesNoSizeThatCannotBe)
{
    struct row {
        std::string size;
        std::string got; ///< instead of "remote"
        std::string error{};
    };
    for (const auto& [size, got, error] :
         {row{"213 -1", "remote"}, row{"213 99999999999999999999", "remote"}, row{"213 x", "remote"},
          row{"213 3", "remote"}, row{"213 7", "local", "SizeMismatch"}})
        for (const bool in_place : {false, true}) {
            SCOPED_TRACE(size + (in_place ? " in place" : ""));
            client_stage t({{"SIZE", answer::reply(size)}});
            const auto fetch = [&] { t.open().fetch("f", t.local / "f", {.in_place = in_place}); };
            EXPECT_EQ(error_of_client(fetch), error);
            EXPECT_EQ(files_in(t.local).at("f"), in_place ? "remote" : got);
        }
}

TEST(Transfer, AsksTheServerBeforeItTouchesTheLocalFile)
{
    for (const bool resumes : {false, true}) {
        client_stage t({{"RETR", denied}, {"SIZE", denied}, {"MLST", denied}});
        t.peer.body("MLSD /home/u", "");
        const transfer_options options{.in_place = true, .resume = resumes};
        for (const char* const name : {"f", "new"})
            EXPECT_NE(error_of_client([&] { t.open().fetch("f", t.local / name, options); }), "");
        EXPECT_EQ(files_in(t.local), (files{{"f", "local"}, {"long", "longer than the remote one"}}))
            << resumes;
    }
}

TEST(Transfer, ReportsASecondInWhichNothingComesSoThatItCanBeEnded)
{
    for (const auto scheme : {url_scheme::ftp, url_scheme::sftp}) {
        client_stage t({}, scheme);
        t.keep({{"/home", "/"}, {"/home/u", "/"}, {"/home/u/f", "remote"}});
        t.peer.on("RETR", answer::reply("150 soon"));
        if (t.sftp)
            t.sftp->script([](sftp_peer& server) {
                server.intercept = [](const sftp_peer::request& asked) {
                    return asked.type == qrftp::sftp::packet_type::fstat ? std::optional<std::string>("")
                                                                         : std::nullopt;
                };
            });
        t.options.stall_timeout = 5s;
        transfer_options options;
        options.on_progress = [calls = 0](const auto& now) mutable { return now.bytes == 0 && ++calls < 2; };
        auto& client = t.open();
        EXPECT_EQ(error_of_client([&] { client.fetch("f", t.local / "f", options); }), "Cancelled");
    }
}

/// A pipe whose reader does not read before it is told to.
TEST(Transfer, WaitsForASlowReaderAndCanBeEndedMeanwhile)
{
    const std::string stored(300'000, 'x');
    for (const auto scheme : {url_scheme::ftp, url_scheme::sftp})
        for (const bool is_ended : {true, false}) {
            client_stage t({}, scheme);
            t.keep({{"/home", "/"}, {"/home/u", "/"}, {"/home/u/f", stored}});
            ASSERT_EQ(mkfifo((t.local / "pipe").c_str(), 0600), 0);
            fs::create_symlink("pipe", t.local / "link");
            const int reader = open((t.local / "pipe").c_str(), O_RDONLY | O_NONBLOCK);
            fcntl(reader, F_SETFL, 0);
            std::stop_source stop;
            t.options.stop = stop.get_token();
            t.options.stall_timeout = 1s;
            std::future<std::string> read;
            transfer_options options;
            options.on_progress = [&, last = 0ULL, calls = 0](const auto& now) mutable {
                calls = std::exchange(last, now.bytes) == now.bytes && last > 0 ? calls + 1 : 0;
                if (calls == 3 && is_ended)
                    stop.request_stop();
                if (calls == 25) // longer than the server may be silent
                    read = std::async(std::launch::async, [&] {
                        std::string all;
                        for (char byte = 0; all.size() < stored.size() && ::read(reader, &byte, 1) == 1;)
                            all += byte;
                        return all;
                    });
                return true;
            };
            auto& client = t.open();
            EXPECT_EQ(error_of_client([&] { client.fetch("f", t.local / "link", options); }),
                      is_ended ? "Cancelled" : "");
            EXPECT_TRUE(is_ended || (read.valid() && read.get() == stored));
            close(reader);
        }
}

TEST(Transfer, GoesThroughNoLinkOfAStrangerInASharedFolder)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root makes links of others";
    client_stage t;
    const fs::path link = t.local / "shared/link";
    fs::create_directory(t.local / "shared");
    fs::create_symlink("../f", link);
    ASSERT_EQ(lchown(link.c_str(), 65534, 65534), 0);
    const fs::path to_pipe = t.local / "shared/to_pipe";
    fs::create_symlink("../pipe", to_pipe);
    ASSERT_TRUE(lchown(to_pipe.c_str(), 65534, 65534) == 0 && mkfifo((t.local / "pipe").c_str(), 0600) == 0);
    for (const bool is_shared : {true, false}) {
        fs::permissions(t.local / "shared", is_shared ? fs::perms(01777) : fs::perms(0777));
        EXPECT_EQ(error_of_client([&] { t.open().send(link, "t"); }), is_shared ? "LocalFileError" : "");
        EXPECT_EQ(error_of_client([&] { t.open().fetch("f", link); }), is_shared ? "LocalFileError" : "");
        EXPECT_EQ(content(t.local / "f"), is_shared ? "local" : "remote");
        if (is_shared) {
            EXPECT_EQ(error_of_client([&] { t.open().send(to_pipe, "t"); }), "LocalFileError");
            EXPECT_EQ(error_of_client([&] { t.open().fetch("f", to_pipe); }), "LocalFileError");
        }
    }
}

TEST(Transfer, AsksForNothingThatTheTreeKnows)
{
    client_stage t({}, url_scheme::sftp);
    t.keep({{"/home", "/"}, {"/home/u", "/"}});
    for (const char* const name : {"a", "d/b", "d/c"})
        write_file(t.local / "tree" / name, "new");
    const auto looks = [&](const auto& call) {
        std::size_t count = 0;
        const auto add = [&](sftp_peer& server) {
            count = server.count(qrftp::sftp::packet_type::lstat) - count;
        };
        t.sftp->script(add);
        call();
        t.sftp->script(add);
        return count;
    };
    auto& client = t.open();
    qrftp::sync_options options;
    options.transfer.keep_time = true;
    EXPECT_EQ(looks([&] { send_tree(client, t.local / "tree", "t", options); }), 0U)
        << "folders that were made just now";
    write_file(t.local / "tree/d/c", "longer");
    write_file(t.local / "tree/d/n", "new");
    const auto again = [&] { synchronise(client, t.local / "tree", "t", qrftp::direction::send, options); };
    EXPECT_EQ(looks(again), 1U) << "only what is replaced may have a mode to keep";
}

TEST(Transfer, ReadsOnWhereReadingFailedOnce)
{
    client_stage t({{"RETR", denied, 1}});
    auto file = t.open().open("f");
    std::string bytes(6, '?');
    EXPECT_EQ(error_of_client([&] { (void)file.read(0, bytes); }), "PermissionDenied");
    EXPECT_EQ(file.read(0, bytes), 6U);
    EXPECT_EQ(bytes, "remote");
    EXPECT_THAT(file.read(std::vector<qrftp::file_range>{{1, ~0ULL}}), ElementsAre("emote"));
    file.close();
    EXPECT_THAT([&] { (void)file.size(); }, ThrowsMessage<qrftp::Closed>("The file is closed."));
}

TEST(Transfer, ReplacesNothingByWhatHasAnotherChecksum)
{
    using qrftp::hash_algorithm;
    struct row {
        std::string feature;
        std::string command;
        hash_algorithm algorithm;
        std::string before_digits;
    };
    for (const auto& [feature, command, algorithm, before_digits] :
         {row{"HASH SHA-1*;SHA-256", "HASH", hash_algorithm::sha256, "213 SHA-256 0-5 "},
          row{"HASH MD5", "HASH", hash_algorithm::md5, "213 MD5 0-5 "},
          row{"XSHA256", "XSHA256", hash_algorithm::sha256, "250 "},
          row{"XSHA1", "XSHA1", hash_algorithm::sha1, "250 "}, row{"XMD5", "XMD5", hash_algorithm::md5, "250 "},
          row{"XCRC", "XCRC", hash_algorithm::crc32, "250 "}})
        for (const bool right : {true, false}) {
            SCOPED_TRACE(feature + (right ? "" : ", wrong"));
            client_stage t({{"FEAT", answer::reply("211-\r\n " + feature + "\r\n211 End")}});
            write_file(t.local / "f", right ? "remote" : "other!");
            const std::string digits = checksum_of(t.local / "f", algorithm).digits;
            t.peer.on(command, answer::reply(before_digits + digits + (command == "HASH" ? " f" : "")));
            t.peer.keep({{"/home", "/"}, {"/home/u", "/"}, {"/home/u/f", "remote"}, {"/home/u/t", "old"}});
            transfer_options verify;
            verify.verify = true;
            const std::string error = right ? "" : "ChecksumMismatch";
            EXPECT_EQ(t.open().checksum_support().algorithm, algorithm);
            EXPECT_EQ(error_of_client([&] { t.client->fetch("f", t.local / "new", verify); }), error);
            EXPECT_EQ(error_of_client([&] { t.client->send_string("remote", "t", verify); }), error);
            EXPECT_EQ(fs::exists(t.local / "new"), right);
            EXPECT_EQ(t.peer.kept().at("/home/u/t"), right ? "remote" : "old");
            EXPECT_EQ(t.peer.kept().size(), 4U) << "a part is left";
        }
    client_stage none;
    transfer_options verify;
    verify.verify = true;
    EXPECT_EQ(error_of_client([&] { none.open().send(none.local / "f", "t", verify); }), "NotSupported");
    EXPECT_EQ(none.sent({"STOR"}), "");
}

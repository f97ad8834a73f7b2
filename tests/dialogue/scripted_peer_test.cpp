#include "ledger.hpp"
#include "scripted_peer.hpp"

#include <gtest/gtest.h>
#include <memory>

using namespace support;
using lines = std::vector<std::string>;

/// One request with a handle of its own, received into or sent from one file.
static CURLcode request(const std::string& url, const char* active = nullptr, bool upload = false)
{
    static const std::unique_ptr<std::FILE, decltype(&fclose)> file(std::tmpfile(), &fclose);
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), &curl_easy_cleanup);
    std::rewind(file.get());
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_FTPPORT, active);
    curl_easy_setopt(handle.get(), CURLOPT_UPLOAD, upload ? 1L : 0L);
    curl_easy_setopt(handle.get(), upload ? CURLOPT_READDATA : CURLOPT_WRITEDATA, file.get());
    return curl_easy_perform(handle.get());
}

TEST(ScriptedPeer, ServesEveryDataModeAndFailsAtEveryStep)
{
    const std::tuple<const char*, const char*, const char*> modes[] = {
        {"none", nullptr, "EPSV"}, {"EPSV", nullptr, "PASV"}, {"none", "-", "EPRT"}, {"EPRT", "-", "PORT"}};
    for (const auto& [refused, active, used] : modes) {
        scripted_peer peer;
        peer.file("f", std::string(300'000, 'x'));
        peer.on(refused, answer::reply("500 no"));
        EXPECT_EQ(request(peer.url() + "/f", active), CURLE_OK) << used;
        EXPECT_EQ(request(peer.url() + "/up", active, true), CURLE_OK) << used;
        EXPECT_TRUE(peer.uploads()["up"] == std::string(300'000, 'x')) << used;
        EXPECT_EQ(peer.commands(1).at(refused[0] == 'n' ? 3 : 4).substr(0, 4), used);
    }
    const lines all{"USER anonymous", "PASS ftp@example.com", "PWD", "CWD d", "EPSV", "TYPE A", "LIST", "QUIT"};
    for (long step = 0; step <= 8; ++step) { // the last command, QUIT, may fail
        scripted_peer peer;
        peer.body("LIST", "a file\r\n");
        peer.at(static_cast<int>(step), step == 7 ? answer::transfer(3, "426 cut\r\n") : answer::drop());
        EXPECT_EQ(request(peer.url() + "/d/") == CURLE_OK, step == 8) << step;
        EXPECT_EQ(peer.commands(), lines(all.begin(), all.begin() + step + (step == 7)));
    }
}

TEST(Ledger, RecordsWhatReachesLibcurl)
{
    ledger::start();
    EXPECT_NE(request("ftp:"), CURLE_OK);
    EXPECT_EQ(ledger::lines(),
              (lines{"URL=ftp:", "FTPPORT=null", "UPLOAD=0", "WRITEDATA=ptr", "perform", "cleanup"}));
    ledger::fail_next_init();
    EXPECT_EQ(curl_easy_init(), nullptr);
}

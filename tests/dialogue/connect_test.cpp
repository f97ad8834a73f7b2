// Opening a connection: what is sent, what is set for good, and what each kind of refusal becomes.

#include "ledger.hpp"
#include "operations.hpp"
#include "scripted_peer.hpp"

#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <foundation/httpproxy/ProxySelector.hpp>
#include <foundation/log/sink.hpp>
#include <foundation/services/bundle_context.hpp>
#include <gmock/gmock.h>
#include <zx/warning.hpp>

using namespace support;
using foundation::httpproxy::Proxy, foundation::httpproxy::ProxyList;

TEST(Connect, SettlesOnTheStartingFolderOrSaysWhyNot)
{
    const auto host = std::string("ftp://127.0.0.1");
    using replies = std::vector<std::pair<const char*, const char*>>;
    // The folder, or the error and its arguments (PORT stands for the port); warnings; commands, none where
    // they do not matter.
    const std::tuple<std::string, replies, texts, texts, std::string> rows[] = {
        {host, {}, {"/home/u"}, {}, "USER u|PASS p|PWD|PWD|CWD /|CWD home|CWD u|PWD"},
        {host + "/", {}, {"/home/u"}, {}, "USER u|PASS p|PWD|PWD|PWD"},
        {host + "/pub", {}, {"/home/u/pub"}, {}, "USER u|PASS p|PWD|CWD pub|PWD|PWD"},
        {host + "//pub/x/", {}, {"/pub/x"}, {}, "USER u|PASS p|PWD|CWD /|CWD pub|CWD x|PWD|PWD"},
        {host + "/no",
         {{"CWD no", "550 no"}},
         {"NoSuchDirectory", host + "/no/"},
         {"CouldNotLoginToRemoteFolder"},
         {}},
        {host + "/no", {{"CWD", "550 no"}, {"PWD", "257 \"/\""}}, {"NoConnection", host, "PORT"}, {}, {}},
        {host, {{"PASS", "530 no"}}, {"BadLogin", host}, {}, "USER u|PASS p"},
        {host + "/x", {{"USER", "530 no"}}, {"BadLogin", host + "/x"}, {}, "USER u"},
        {host, {{"greeting", "421 busy"}}, {"NoConnection", host, "PORT"}, {}, {}},
        {host,
         {{"PWD", "550 no"}},
         {"InternalError", "PWD", "Could not get PWD response"},
         {},
         "USER u|PASS p|PWD|PWD"},
    };
    for (const auto& [url, scripted, want, warned, commands] : rows) {
        SCOPED_TRACE(url + (scripted.empty() ? "" : scripted.front().second));
        texts warnings;
        const auto earlier = zxSetWarningHandler([&](const auto& message) { warnings.push_back(message.key); });
        scripted_peer peer("/home/u", std::chrono::seconds(2));
        for (const auto& [line, reply] : scripted)
            peer.on(line, answer::reply(reply));
        core::curl_ptr connection;
        core::connection_timeout(connection, 3000);
        std::string folder;
        texts result = error_of([&, &to = url] { folder = log_in(connection, to, peer.port()); });
        if (result.front() == "nothing")
            result = {folder};
        std::ranges::replace(result, std::to_string(peer.port()), "PORT");
        EXPECT_EQ(result, want);
        EXPECT_EQ(warnings, warned);
        EXPECT_EQ(commands.empty() ? "" : joined(peer.commands()), commands);
        zxSetWarningHandler(earlier);
    }
}

TEST(Connect, LeavesTheStatedOptionsAndNoOthers)
{
    scripted_peer peer;
    core::curl_ptr connection;
    ledger::start();
    log_in(connection, scripted_peer::host_url, peer.port(), "active", "opportunistic");
    const auto lines = ledger::lines();
    ASSERT_GE(lines.size(), 17U);
    EXPECT_EQ(joined(texts(lines.begin(), lines.begin() + 16)),
              "FTPPORT=-|URL=ftp://127.0.0.1/|USERNAME=u|PASSWORD=p|PORT=" + std::to_string(peer.port()) +
                  "|SSL_VERIFYHOST=1|SSL_VERIFYPEER=1|LOW_SPEED_LIMIT=1|LOW_SPEED_TIME=60|CAINFO=|USE_SSL=1|"
                  "NOBODY=1|WRITEFUNCTION=fn|perform|"
                  "WRITEFUNCTION=null|NOBODY=0");
    expect_restored(texts(lines.begin() + 11, lines.end()), "ftp://127.0.0.1//home/u/");
    EXPECT_EQ(peer.commands().front(), "AUTH SSL");
    core::list(connection, "");
    EXPECT_THAT(peer.commands(), testing::Contains(testing::StartsWith("EPRT |1|127.0.0.1|")));
    peer.clear_commands(), ledger::start();
    core::transfer_timeout(connection, 30000);
    core::connection_timeout(connection, 5000);
    EXPECT_EQ(joined(ledger::lines()), "TIMEOUT_MS=30000|CONNECTTIMEOUT_MS=5000");
    for (const char* mode : {"Strict", "", "all"})
        EXPECT_EQ(
            joined(error_of([&] { log_in(connection, scripted_peer::host_url, peer.port(), "Active", mode); })),
            std::string("InternalError|TLSMode|Unrecognized option: ") + mode);
    EXPECT_EQ(joined(peer.commands()), "") << "no password is sent without the encryption that was meant";
}

TEST(Connect, OfSftpLeavesTheStatedOptionsAndTriesTheRoot)
{
    core::curl_ptr connection;
    ledger::start();
    const auto connect = [&] {
        core::connect_with_passphrase(connection, "127.0.0.1", "u", 1, "pub", "key", "words", false, "", "ca",
                                      true, false, 2, 3, false);
    };
    EXPECT_EQ(error_of(connect), (texts{"NoConnection", "sftp://127.0.0.1", "1"}));
    EXPECT_EQ(joined(ledger::lines()), "SSH_AUTH_TYPES=1|SSH_PUBLIC_KEYFILE=pub|SSH_PRIVATE_KEYFILE=key|"
                                       "KEYPASSWD=words|URL=sftp://127.0.0.1/~|USERNAME=u|PORT=1|"
                                       "SSL_VERIFYHOST=0|SSL_VERIFYPEER=1|CAINFO=ca|LOW_SPEED_LIMIT=2|LOW_"
                                       "SPEED_TIME=3|DIRLISTONLY=1|NOBODY=1|perform|NOBODY=0|"
                                       "URL=sftp://127.0.0.1|NOBODY=1|perform|NOBODY=0");
}

TEST(Connect, OfSftpEncodesTheStartingFolderForEachUseAndLogsItsResult)
{
    texts records;
    foundation::log::set_entry_handler([&](const auto& entry) { records.emplace_back(entry.text); });
    core::getLogger().enable_levels(core::level::info | core::level::entry);
    core::curl_ptr connection;
    const auto connect = [&] {
        core::connect_with_password(connection, "127.0.0.1", "u", 1, "p", false, "a b", "", true, true, 1, 60,
                                    false);
    };
    EXPECT_EQ(error_of(connect), (texts{"NoConnection", "sftp://127.0.0.1", "1"}));
    core::getLogger().enable_levels(0);
    foundation::log::set_entry_handler({});
    const auto encoded = [](const std::string& text) {
        return text.find("::percent_encode_path(") != text.npos;
    };
    EXPECT_EQ(std::ranges::count_if(records, encoded), 2 * 2) << "entered and left twice";
    EXPECT_THAT(records, testing::Contains("Response from request to connect to login folder: 7 "));
}

TEST(Proxy, OfTheFirstListThatIsNotEmptyIsSet)
{
    struct selector : foundation::httpproxy::ProxySelector {
        ProxyList http, https;
        ProxyList select(const std::string& url) override
        {
            return url == "http://" ? http : url == "https://" ? https : ProxyList{};
        }
    };
    const Proxy plain("plain", 0), full("full", 3128, foundation::httpproxy::Credentials{"me", "secret"});
    const std::string tunnel = "HTTPPROXYTUNNEL=1|SUPPRESS_CONNECT_HEADERS=1";
    const std::tuple<bool, ProxyList, ProxyList, std::string> rows[] = {
        {false, {}, {}, ""},
        {true, {}, {}, tunnel},
        {true, {}, {plain}, "PROXY=plain|PROXY=plain|" + tunnel},
        {true,
         {full, plain},
         {plain},
         "PROXY=full|PROXY=full|PROXYPORT=3128|PROXYUSERNAME=me|PROXYPASSWORD=secret|" + tunnel}};
    auto framework = cppmicroservices::FrameworkFactory().NewFramework();
    framework.Start();
    const auto real = foundation::services::exchange_bundle_context(framework.GetBundleContext());
    const auto offered = std::make_shared<selector>();
    for (const auto& [present, http, https, want] : rows) {
        offered->http = http, offered->https = https;
        if (present)
            (void)framework.GetBundleContext().RegisterService<foundation::httpproxy::ProxySelector>(offered);
        core::curl_ptr connection(false);
        ledger::start();
        core::configure_proxy(connection);
        EXPECT_EQ(joined(ledger::lines()), want);
    }
    foundation::services::exchange_bundle_context(real);
}

TEST(Log, HoldsTheDialogueButNoSecret)
{
    std::string all;
    foundation::log::set_entry_handler([&](const auto& entry) { all.append(entry.text).append("\n"); });
    core::getLogger().enable_levels(core::level::message | core::level::info);
    {
        scripted_peer peer;
        core::curl_ptr connection;
        core::connect(connection, scripted_peer::host_url, "u", "hunter2", peer.port(), "", "none", false, "",
                      true, true, 1, 60);
    }
    core::getLogger().enable_levels(0);
    foundation::log::set_entry_handler({});
    for (const char* text :
         {"[HEADER OUT] USER u\n", "[HEADER OUT] PASS ", "PWD response code: 0\n", "PWD parsed as: /home/u\n",
          "unsafe_cd on path \"ftp://127.0.0.1//home/u/\" returned curl code: 0 and reply code: 250\n"})
        EXPECT_THAT(all, testing::HasSubstr(text));
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("hunter2")));
}

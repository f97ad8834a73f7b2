// Opening a connection: what is sent, what is set for good, and what each kind of refusal becomes.

#include "ledger.hpp"
#include "operations.hpp"
#include "scripted_peer.hpp"

#include <foundation/httpproxy/ProxySelector.hpp>
#include <foundation/log/sink.hpp>
#include <foundation/services/bundle_context.hpp>
#include <zx/warning.hpp>

#include <cppmicroservices/FrameworkFactory.h>
#include <gmock/gmock.h>

using namespace support;
using foundation::httpproxy::Credentials;
using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyList;
using testing::ElementsAre;

TEST(Connect, SettlesOnTheStartingFolderOrSaysWhyNot)
{
    const auto host = std::string("ftp://127.0.0.1");
    struct row {
        std::string url;
        std::vector<std::pair<const char*, const char*>> replies;
        texts result; ///< the folder, or the error and its arguments (PORT stands for the port)
        texts warnings;
        std::string commands; ///< joined by "|"; empty where they do not matter
    };
    const row rows[] = {
        {host, {}, {"/home/u"}, {}, "USER u|PASS p|PWD|PWD|CWD /|CWD home|CWD u|PWD"},
        {host + "/", {}, {"/home/u"}, {}, "USER u|PASS p|PWD|PWD|PWD"},
        {host + "/pub", {}, {"/home/u/pub"}, {}, "USER u|PASS p|PWD|CWD pub|PWD|PWD"},
        {host + "//pub/x/", {}, {"/pub/x"}, {}, "USER u|PASS p|PWD|CWD /|CWD pub|CWD x|PWD|PWD"},
        {host + "/no", {{"CWD no", "550 no"}}, {"NoSuchDirectory", host + "/no/"}, {"CouldNotLoginToRemoteFolder"}, {}},
        {host + "/no", {{"CWD", "550 no"}, {"PWD", "257 \"/\""}}, {"NoConnection", host, "PORT"}, {}, {}},
        {host, {{"PASS", "530 no"}}, {"BadLogin", host}, {}, "USER u|PASS p"},
        {host + "/x", {{"USER", "530 no"}}, {"BadLogin", host + "/x"}, {}, "USER u"},
        {host, {{"greeting", "421 busy"}}, {"NoConnection", host, "PORT"}, {}, {}},
        {host, {{"greeting", "what?"}}, {"NoConnection", host, "PORT"}, {}, {}},
        {host, {{"PWD", "550 no"}}, {"InternalError", "PWD", "Could not get PWD response"}, {}, "USER u|PASS p|PWD|PWD"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.url + (r.replies.empty() ? "" : r.replies.front().second));
        texts warnings;
        const auto earlier = zxSetWarningHandler([&](const auto& message) { warnings.push_back(message.key); });
        scripted_peer peer("/home/u", std::chrono::milliseconds(300));
        for (const auto& [line, reply] : r.replies) peer.on(line, answer::reply(reply));
        core::curl_ptr connection;
        core::connection_timeout(connection, 500);
        std::string folder;
        texts result = error_of([&] { folder = log_in(connection, r.url, peer.port()); });
        if (result.front() == "nothing") result = {folder};
        std::replace(result.begin(), result.end(), std::to_string(peer.port()), std::string("PORT"));
        EXPECT_EQ(result, r.result);
        EXPECT_EQ(warnings, r.warnings);
        if (!r.commands.empty()) {
            EXPECT_EQ(joined(peer.commands()), r.commands);
        }
        zxSetWarningHandler(earlier);
    }
}

TEST(Connect, LeavesTheStatedOptionsAndNoOthers)
{
    scripted_peer peer;
    core::curl_ptr connection;
    ledger::start();
    log_in(connection, scripted_peer::host_url, peer.port(), "active", "opportunistic");
    auto lines = ledger::lines();
    ASSERT_GE(lines.size(), 17U);
    EXPECT_EQ(texts(lines.begin(), lines.begin() + 16),
        (texts{"FTPPORT=-", "URL=ftp://127.0.0.1/", "USERNAME=u", "PASSWORD=p", "PORT=" + std::to_string(peer.port()), "SSL_VERIFYHOST=1",
            "SSL_VERIFYPEER=1", "LOW_SPEED_LIMIT=1", "LOW_SPEED_TIME=60", "CAINFO=", "USE_SSL=1", "NOBODY=1", "WRITEFUNCTION=fn", "perform",
            "WRITEFUNCTION=null", "NOBODY=0"}));
    expect_restored(texts(lines.begin() + 11, lines.end()), "ftp://127.0.0.1//home/u/");
    EXPECT_EQ(peer.commands().front(), "AUTH SSL");
    core::list(connection, "");
    EXPECT_THAT(peer.commands(), testing::Contains(testing::StartsWith("EPRT |1|127.0.0.1|")));
}

TEST(Connect, OfSftpLeavesTheStatedOptionsAndTriesTheRoot)
{
    core::curl_ptr connection;
    ledger::start();
    const auto connect = [&] {
        core::connect_with_passphrase(connection, "127.0.0.1", "u", 1, "pub", "key", "words", false, "", "ca", true, false, 2, 3, false);
    };
    EXPECT_EQ(error_of(connect), (texts{"NoConnection", "sftp://127.0.0.1", "1"}));
    EXPECT_EQ(joined(ledger::lines()),
        "SSH_AUTH_TYPES=1|SSH_PUBLIC_KEYFILE=pub|SSH_PRIVATE_KEYFILE=key|KEYPASSWD=words|URL=sftp://127.0.0.1/~|USERNAME=u|PORT=1|"
        "SSL_VERIFYHOST=0|SSL_VERIFYPEER=1|CAINFO=ca|LOW_SPEED_LIMIT=2|LOW_SPEED_TIME=3|DIRLISTONLY=1|NOBODY=1|perform|NOBODY=0|"
        "URL=sftp://127.0.0.1|NOBODY=1|perform|NOBODY=0");
}

TEST(Connect, SendsNoPasswordWithoutTheTlsItWasAskedFor)
{
    scripted_peer peer;
    core::curl_ptr connection;
    EXPECT_EQ(error_of([&] { log_in(connection, scripted_peer::host_url, peer.port(), "passive", "strict"); }).front(), "NoConnection");
    EXPECT_THAT(peer.commands(), ElementsAre("AUTH SSL", "AUTH TLS"));
    for (const char* mode : {"Strict", "", "all"})
        EXPECT_EQ(error_of([&] { log_in(connection, scripted_peer::host_url, peer.port(), "Active", mode); }),
            (texts{"InternalError", "TLSMode", std::string("Unrecognized option: ") + mode}));
    EXPECT_EQ(peer.commands().size(), 2U);
    core::curl_ptr taken(std::move(connection));
    EXPECT_EQ(error_of([&] { log_in(connection, scripted_peer::host_url, peer.port()); }).front(), "InvalidCurlHandle");
}

TEST(Connect, DropsAtEveryStepAreNoConnection)
{
    for (int step = 0; step < 9; ++step) {
        scripted_peer peer;
        peer.at(step, answer::drop());
        core::curl_ptr connection;
        const auto error = error_of([&] { log_in(connection, scripted_peer::host_url, peer.port()); }).front();
        EXPECT_THAT(error, testing::AnyOf("NoConnection", "BadLogin", "InternalError", "NoSuchDirectory")) << step;
        EXPECT_TRUE(connection) << "the handle is whole, and the caller's to discard";
    }
}

namespace {

struct fixed_selector : foundation::httpproxy::ProxySelector {
    ProxyList http, https;
    ProxyList select(const std::string& url) override { return url == "http://" ? http : url == "https://" ? https : ProxyList{}; }
};

} // namespace

TEST(Proxy, OfTheFirstListThatIsNotEmptyIsSet)
{
    const texts tunnel{"HTTPPROXYTUNNEL=1", "SUPPRESS_CONNECT_HEADERS=1"};
    const Proxy plain("plain", 0);
    const Proxy full("full", 3128, Credentials{"me", "secret"});
    const std::tuple<bool, ProxyList, ProxyList, texts> rows[] = {
        {false, {}, {}, {}},
        {true, {}, {}, tunnel},
        {true, {}, {plain}, {"PROXY=plain", "PROXY=plain", tunnel[0], tunnel[1]}},
        {true, {full, plain}, {plain},
            {"PROXY=full", "PROXY=full", "PROXYPORT=3128", "PROXYUSERNAME=me", "PROXYPASSWORD=secret", tunnel[0], tunnel[1]}},
    };
    for (const auto& [present, http, https, want] : rows) {
        auto framework = cppmicroservices::FrameworkFactory().NewFramework();
        framework.Start();
        auto context = framework.GetBundleContext();
        if (present) {
            const auto selector = std::make_shared<fixed_selector>();
            selector->http = http;
            selector->https = https;
            context.RegisterService<foundation::httpproxy::ProxySelector>(selector);
        }
        const auto real = foundation::services::exchange_bundle_context(context);
        core::curl_ptr connection(false);
        ledger::start();
        core::configure_proxy(connection);
        EXPECT_EQ(ledger::lines(), want);
        EXPECT_EQ(error_of([] { core::curl_ptr(); }), texts{"LibraryInitializationFailure"});
        foundation::services::exchange_bundle_context(real);
    }
    core::curl_ptr connection(false);
    ledger::start();
    core::transfer_timeout(connection, 30000);
    core::connection_timeout(connection, 5000);
    EXPECT_THAT(ledger::lines(), ElementsAre("TIMEOUT_MS=30000", "CONNECTTIMEOUT_MS=5000"));
}

TEST(Log, HoldsTheDialogueButNoSecret)
{
    std::string all;
    foundation::log::set_entry_handler([&](const auto& entry) { all.append(entry.text).append("\n"); });
    core::getLogger().enable_levels(core::level::message | core::level::info);
    {
        scripted_peer peer;
        core::curl_ptr connection;
        core::connect(connection, scripted_peer::host_url, "u", "hunter2", peer.port(), "", "none", false, "", true, true, 1, 60);
    }
    core::getLogger().enable_levels(0);
    foundation::log::set_entry_handler({});
    for (const char* text : {"[HEADER OUT] USER u\n", "[HEADER OUT] PASS ", "PWD response code: 0\n", "PWD parsed as: /home/u\n",
             "unsafe_cd on path \"ftp://127.0.0.1//home/u/\" returned curl code: 0 and reply code: 250\n"})
        EXPECT_THAT(all, testing::HasSubstr(text));
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("hunter2")));
}

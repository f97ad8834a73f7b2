#include "ssh_peer.hpp"

#include <sftp/proxy_connection.hpp>
#include <sftp/ssh_transport.hpp>
#include <sftp/tcp_connection.hpp>

#include <qrftp/error.hpp>

#include <chrono>
#include <dlfcn.h>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace qrftp;
using namespace std::literals;
using support::ssh_peer;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

/// A name has two addresses, at the first of which nobody listens.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found)
{
    static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name == nullptr || std::string_view(name) != "two.test") {
        return real(name, service, hints, found);
    }
    if ((hints->ai_flags & AI_NUMERICHOST) != 0) {
        return EAI_NONAME;
    }
    real("127.0.0.2", service, hints, found);
    return real("127.0.0.1", service, hints, &(*found)->ai_next);
}

namespace {

/// A folder for keys and known hosts, and how the client is to log in.
class Ssh : public testing::Test {
protected:
    Ssh()
    {
        fs::create_directories(folder);
        options.known_hosts_file = folder / "known_hosts";
        options.global_known_hosts_file.clear();
        options.ssh_config.only = fs::path();
        options.use_agent = false;
        // Others than the account's own.
        options.private_keys = {folder / "key"};
        key = support::make_key_file(folder / "key");
    }
    ~Ssh() override { fs::remove_all(folder); }

    std::unique_ptr<sftp::transport> connect(const ssh_peer& peer) { return connect(peer.port()); }
    std::unique_ptr<sftp::transport> connect(std::uint16_t port)
    {
        return sftp::connect_ssh({url_scheme::sftp, "127.0.0.1", port, "tester", "", ""}, options, info);
    }
    /// Why no connection came about; none when it did.
    std::optional<error_cause> refusal(const ssh_peer& peer) { return refusal(peer.port()); }
    std::optional<error_cause> refusal(std::uint16_t port)
    {
        try {
            connect(port);
            return std::nullopt;
        } catch (const error& e) {
            sentence = e.what();
            return e.cause();
        }
    }

    fs::path folder = fs::path(testing::TempDir()) / ("ssh_" + std::to_string(::getpid()));
    std::string key;
    session_options options;
    server_info info;
    std::string sentence;
};

/// A port of loopback that says something to whoever connects, and then only listens.
class line_server {
public:
    explicit line_server(std::string line) : socket_(::socket(AF_INET, SOCK_STREAM, 0)), line_(std::move(line))
    {
        socklen_t size = sizeof address_;
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(socket_, reinterpret_cast<const sockaddr*>(&address_), size);
        ::listen(socket_, 1);
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address_), &size);
        thread_ = std::thread([this] {
            const int client = ::accept(socket_, nullptr, nullptr);
            ::send(client, line_.data(), line_.size(), MSG_NOSIGNAL);
            char byte = 0;
            while (::recv(client, &byte, 1, 0) > 0) {
                received_ += byte;
            }
            ::close(client);
        });
    }
    /// What the client has sent, which is gone.
    std::string received()
    {
        thread_.join();
        thread_ = std::thread([] {});
        return received_;
    }
    ~line_server()
    {
        ::shutdown(socket_, SHUT_RDWR);
        thread_.join();
        ::close(socket_);
    }
    [[nodiscard]] std::uint16_t port() const { return ntohs(address_.sin_port); }

private:
    int socket_;
    std::string line_;
    std::string received_{};
    sockaddr_in address_{};
    std::thread thread_;
};

std::string bytes(std::size_t size)
{
    std::string all(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : all) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24U);
    }
    return all;
}

/// Sends `sent` and reads until as much came back.
std::string echo(sftp::transport& channel, std::string_view sent)
{
    std::string received;
    const std::size_t size = sent.size();
    std::vector<char> buffer(100000);
    while (received.size() < size) {
        sent.remove_prefix(channel.write(sent));
        const std::size_t got = channel.read(buffer);
        received.append(buffer.data(), got);
        if (got == 0) {
            channel.wait(!sent.empty(), 10s);
        }
    }
    return received;
}

} // namespace

TEST_F(Ssh, CarriesBytesBothWays)
{
    const ssh_peer peer({.public_key = key});
    const auto channel = connect(peer);
    const std::string sent = bytes(9'000'000); // more than any window
    EXPECT_TRUE(echo(*channel, sent) == sent);
    EXPECT_THAT(info.greeting, testing::StartsWith("SSH-2.0-"));
    EXPECT_THAT(info.encryption, testing::AnyOf("aes128-gcm@openssh.com", "chacha20-poly1305@openssh.com"));
    EXPECT_EQ(info.key->blob, peer.host_key());
}

TEST_F(Ssh, LogsInWithKeysAndTheirPassPhrases)
{
    for (const std::string type :
         {"ed25519", "ecdsa"}) { // libssh as a server does not tell that it takes RSA's
        options.private_keys = {folder / type};
        const ssh_peer peer({.public_key = support::make_key_file(folder / type, type, "secret")});
        options.pass_phrase = "secret";
        EXPECT_EQ(refusal(peer), std::nullopt) << type << sentence;
        options.pass_phrase = "wrong";
        EXPECT_EQ(refusal(peer), error_cause::invalid_option) << type;
        options.ask_pass_phrase = [](const fs::path&) { return "secret"; };
        EXPECT_EQ(refusal(peer), std::nullopt) << type << sentence;
        options.ask_pass_phrase = nullptr;
    }
    options.private_keys = {folder / "none"};
    EXPECT_EQ(refusal(ssh_peer({})), error_cause::local_file);
}

TEST_F(Ssh, TriesPasswordsUntilOneIsRight)
{
    const ssh_peer peer({.password = "right"});
    std::vector<std::string> asked = {"right", "wrong", "bad"};
    options.ask_password = [&](unsigned attempt) {
        EXPECT_EQ(attempt, 3 - asked.size());
        const std::string next = asked.back();
        asked.pop_back();
        return next;
    };
    EXPECT_EQ(refusal(peer), std::nullopt) << sentence;
    // The key is refused as its method is not offered.
    EXPECT_THAT(peer.tries(), ElementsAre("publickey", "password bad", "password wrong", "password right"));
    options.password = "other";
    EXPECT_EQ(refusal(peer), error_cause::login_refused);
    options.password = std::nullopt;
    options.ask_password = [](unsigned) { return std::nullopt; };
    EXPECT_EQ(refusal(peer), error_cause::login_refused);
}

TEST_F(Ssh, AnswersTheServersOwnPrompts)
{
    const ssh_peer peer(
        {.rounds = {{{"Password: ", false, "right"}}, {{"Code: ", false, "42"}, {"Room: ", true, "7"}}}});
    options.password = "right";
    EXPECT_EQ(refusal(peer), error_cause::login_refused) << "nobody knows the code";
    std::vector<std::string> seen;
    options.answer_prompts = [&](const login_prompts& asked) {
        seen = {asked.name, asked.instruction};
        for (const login_prompt& prompt : asked.prompts) {
            seen.push_back(prompt.text + (prompt.echo ? "shown" : "hidden"));
        }
        return std::vector<std::string>{"42", "7"};
    };
    EXPECT_EQ(refusal(peer), std::nullopt) << sentence;
    EXPECT_THAT(seen, ElementsAre("the name", "the instruction", "Code: hidden", "Room: shown"));
    options.answer_prompts = [](const login_prompts&) { return std::nullopt; };
    EXPECT_EQ(refusal(peer), error_cause::login_refused);

    const ssh_peer one({.rounds = {{{"Password: ", false, "right"}}}});
    EXPECT_EQ(refusal(one), std::nullopt) << sentence;
    options.password = std::nullopt;
    options.ask_password = [](unsigned attempt) { return attempt == 0 ? "wrong" : "right"; };
    options.answer_prompts = nullptr;
    EXPECT_EQ(refusal(one), std::nullopt) << sentence;
}

TEST_F(Ssh, GoesOnWithAnotherMethodWhereOneIsNotEnough)
{
    const ssh_peer peer({.password = "right", .public_key = key, .needs_key_and_password = true});
    options.password = "right";
    EXPECT_EQ(refusal(peer), std::nullopt) << sentence;
    EXPECT_THAT(peer.tries(), ElementsAre("publickey", "password right"));
}

TEST_F(Ssh, GoesOnWithMoreKeysOverAnotherConnection)
{
    ssh_peer::script script{.public_key = key, .max_tries = 3};
    options.private_keys.clear();
    for (const char* const name : {"a", "b", "c", "d", "e", "f", "g"}) {
        options.private_keys.push_back(folder / name);
        support::make_key_file(folder / name);
    }
    const ssh_peer refusing(script);
    EXPECT_EQ(refusal(refusing), error_cause::login_refused);
    EXPECT_LT(refusing.connections(), 6U);
    options.private_keys.push_back(folder / "key");
    const ssh_peer peer(script);
    EXPECT_EQ(refusal(peer), std::nullopt) << sentence;
    EXPECT_EQ(peer.connections(), 3U);
}

TEST_F(Ssh, SendsNothingSecretBeforeTheHostKeyIsAccepted)
{
    options.password = "secret";
    options.host_keys = host_key_check::strict;
    const ssh_peer peer({.password = "secret"});
    EXPECT_EQ(refusal(peer), error_cause::host_key_unknown);
    options.host_keys = host_key_check::accept_new;
    options.confirm_host_key = [](const host_key&) { return false; };
    EXPECT_EQ(refusal(peer), error_cause::host_key_unknown);
    EXPECT_THAT(peer.tries(), IsEmpty());
    options.confirm_host_key = nullptr;
    EXPECT_EQ(refusal(peer), std::nullopt) << sentence;
    options.host_keys = host_key_check::strict;
    EXPECT_EQ(refusal(peer), std::nullopt) << sentence;
}

TEST_F(Ssh, AsksForTheTypeOfKeyThatIsKnown)
{
    const ssh_peer both({.host_keys = {"ed25519", "rsa"}, .password = "p"});
    const std::string host = known_hosts_name("127.0.0.1", both.port());
    options.password = "p";
    known_hosts::append(options.known_hosts_file, {host, "ssh-rsa", both.host_key(1)});
    EXPECT_EQ(refusal(both), std::nullopt) << sentence;
    EXPECT_EQ(info.key->type, "ssh-rsa");

    const ssh_peer other({.password = "p"});
    const std::string other_host = known_hosts_name("127.0.0.1", other.port());
    known_hosts::append(options.known_hosts_file, {other_host, "ssh-rsa", both.host_key(1)});
    EXPECT_EQ(refusal(other), error_cause::host_key_changed);
    EXPECT_THAT(other.tries(), IsEmpty());
}

TEST_F(Ssh, TellsALostConnectionFromARefusal)
{
    using enum ssh_peer::cut;
    const std::pair<ssh_peer::cut, error_cause> rows[] = {{greeting, error_cause::no_connection},
                                                          {key_exchange, error_cause::connection_lost},
                                                          {login, error_cause::connection_lost},
                                                          {channel, error_cause::connection_lost}};
    for (const auto& [cut, cause] : rows) {
        EXPECT_EQ(refusal(ssh_peer({.public_key = key, .cut_at = cut})), cause)
            << static_cast<int>(cut) << sentence;
    }
    EXPECT_EQ(refusal(ssh_peer({.public_key = key, .has_sftp = false})), error_cause::not_supported);
    const ssh_peer cutting({.public_key = key, .new_channel = [] {
                                return [](std::string_view) { return std::optional<std::string>(); };
                            }});
    EXPECT_THROW(echo(*connect(cutting), "a"), ConnectionLost);
}

TEST_F(Ssh, NamesAnFtpServer)
{
    const line_server ftp("220 ready\r\n");
    EXPECT_EQ(refusal(ftp.port()), error_cause::no_connection);
    EXPECT_THAT(sentence, testing::HasSubstr("ftp://127.0.0.1:" + std::to_string(ftp.port())));
}

TEST_F(Ssh, WaitsNoLongerThanAllowed)
{
    const line_server silent("");
    options.connect_timeout = 50ms;
    EXPECT_EQ(refusal(silent.port()), error_cause::timeout);
}

TEST_F(Ssh, StopsAtOnceWhenAsked)
{
    const line_server silent("");
    std::stop_source source;
    options.stop = source.get_token();
    auto connecting = std::async(std::launch::async, [&] { return refusal(silent.port()); });
    EXPECT_EQ(connecting.wait_for(20ms), std::future_status::timeout);
    source.request_stop();
    EXPECT_EQ(connecting.wait_for(1s), std::future_status::ready);
    EXPECT_EQ(connecting.get(), error_cause::cancelled);
    EXPECT_EQ(refusal(silent.port()), error_cause::cancelled);
}

TEST_F(Ssh, TriesEachAddressOfAName)
{
    const ssh_peer peer({});
    sftp::interruptible_wait wait("two.test", {}, 5s);
    EXPECT_TRUE(sftp::connect_tcp("two.test", peer.port(), wait));
}

TEST_F(Ssh, LosesAServerThatDoesNotAnswerAnyMore)
{
    std::ofstream(folder / "config") << "ServerAliveInterval 1\nServerAliveCountMax 1\n";
    options.ssh_config.only = folder / "config";
    std::promise<void> end;
    const ssh_peer deaf({.public_key = key, .new_channel = [&] {
                             return [&](std::string_view) {
                                 end.get_future().wait();
                                 return std::optional<std::string>();
                             };
                         }});
    const ssh_peer awake({.public_key = key});
    const auto lost = connect(deaf);
    const auto kept = connect(awake);
    const auto stay = [](sftp::transport& channel) {
        for (const auto until = std::chrono::steady_clock::now() + 2500ms;
             std::chrono::steady_clock::now() < until;) {
            channel.wait(false, 100ms);
        }
    };
    auto keeping = std::async(std::launch::async, [&] { stay(*kept); });
    lost->write("x");
    EXPECT_THROW(stay(*lost), ConnectionLost);
    keeping.get();
    EXPECT_EQ(echo(*kept, "still here"), "still here");
    end.set_value();
}

TEST(SocksProxy, IsAskedByNameAndWithAPassword)
{
    const std::string reached("\5\0\0\1\0\0\0\0\0\0", 10);
    const std::string refused("\5\5\0\1", 4);
    const auto connect = [](line_server& proxy, bool has_credentials) {
        sftp::interruptible_wait wait("host", {}, 5s);
        const sftp::proxy_address address{
            sftp::proxy_address::protocol::socks5h, "127.0.0.1", proxy.port(), "me", "pw", has_credentials};
        return sftp::connect_through(address, "host", 22, wait);
    };
    line_server with_login("\5\2\1"s + '\0' + reached);
    EXPECT_TRUE(connect(with_login, true));
    EXPECT_EQ(with_login.received(), "\5\2\0\2\1\2me\2pw\5\1\0\3\4host\0\x16"s);
    line_server refusing("\5\0"s + refused);
    EXPECT_THAT([&] { (void)connect(refusing, false); },
                testing::ThrowsMessage<NoConnection>(testing::HasSubstr("connection refused")));
}

#include "client_error.hpp"
#include "line_server.hpp"
#include "local_files.hpp"
#include "scripted_peer.hpp"
#include "ssh_peer.hpp"

#include <sftp/proxy_connection.hpp>
#include <sftp/ssh_transport.hpp>
#include <sftp/ssh_wire.hpp>
#include <sftp/tcp_connection.hpp>

#include <qrftp/error.hpp>

#include <array>
#include <chrono>
#include <dlfcn.h>
#include <fmt/format.h>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace qrftp;
using namespace std::literals;
using support::line_server;
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
            const auto began = std::chrono::steady_clock::now();
            channel.wait(!sent.empty(), 10s);
            EXPECT_LT(std::chrono::steady_clock::now() - began, 9s) << "nobody woke it";
        }
    }
    return received;
}

/// A folder for keys and known hosts, and how the client is to log in.
class Ssh : public testing::Test {
protected:
    Ssh()
    {
        options.known_hosts_file = folder / "known_hosts";
        options.global_known_hosts_file.clear();
        options.ssh_config.only = fs::path();
        options.use_agent = false;
        // Others than the account's own.
        options.private_keys = {folder / "key"};
        key = support::make_key_file(folder / "key");
    }

    std::unique_ptr<sftp::transport> connect(std::uint16_t port)
    {
        return sftp::connect_ssh({url_scheme::sftp, "127.0.0.1", port, "tester", "", ""}, options, info);
    }
    /// The error with which no connection came about; empty when one did.
    std::string refusal(const auto& peer)
    {
        return support::error_of_client([&] {
            try {
                echo(*connect(peer.port()), "is SFTP there?");
            } catch (const error& e) {
                sentence = e.what();
                throw;
            }
        });
    }

    support::temporary_folder folder;
    std::string key;
    session_options options;
    server_info info;
    std::string sentence;
};

/// Runs an SSH agent that tells its key, if it has one, and calls `on_silence` when it is asked for more.
std::future<void> run_silent_agent(const fs::path& path, const std::string& key,
                                   std::function<void()> on_silence)
{
    unique_fd listener(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::listen(listener.get(), 1);
    ::setenv("SSH_AUTH_SOCK", path.c_str(), 1);
    return std::async(std::launch::async, [listener = std::move(listener), key, on_silence] {
        const unique_fd client(::accept(listener.get(), nullptr, nullptr));
        std::array<char, 4096> request{};
        const auto receive = [&] { return ::recv(client.get(), request.data(), request.size(), 0); };
        receive();
        if (!key.empty()) {
            std::string keys("\x0c\0\0\0\1", 5);
            sftp::wire::put_string(keys, key);
            sftp::wire::put_string(keys, "comment");
            std::string answer;
            sftp::wire::put_string(answer, keys);
            ::send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
            receive();
        }
        on_silence();
        receive();
    });
}

} // namespace

TEST_F(Ssh, CarriesBytesBothWays)
{
    const ssh_peer peer({.public_key = key});
    const auto channel = connect(peer.port());
    const std::string sent = support::bytes(9'000'000); // more than any window
    EXPECT_TRUE(echo(*channel, sent) == sent);
    EXPECT_THAT(info.greeting, testing::StartsWith("SSH-2.0-"));
    EXPECT_THAT(info.encryption, testing::AnyOf("aes128-gcm@openssh.com", "chacha20-poly1305@openssh.com"));
    EXPECT_EQ(info.key->blob, peer.host_key());
}

/// Each in a thread of its own, where any may read from the socket what another one waits for.
TEST_F(Ssh, CarriesSeveralStreamsOverOneConnection)
{
    const ssh_peer peer({.public_key = key, .most_channels = 4});
    auto first = connect(peer.port());
    const auto open = first->further_streams();
    std::vector<std::future<void>> running;
    const auto run = [](sftp::transport& stream, unsigned number) {
        const std::string sent = support::bytes(3'000'000 + number); // more than a window
        EXPECT_TRUE(echo(stream, sent) == sent) << number;
        for (int i = 0; i < 3000; ++i) // what is missed here is waited for in vain
            echo(stream, "?");
    };
    for (unsigned number = 1; number < 4; ++number)
        running.push_back(std::async(std::launch::async, [&, number] { run(*open(options), number); }));
    run(*first, 0);
    for (auto& each : running)
        each.get();
    EXPECT_THROW(open(options), NotSupported);
    run(*first, 4);
    first.reset();
    EXPECT_THROW(open(options), error); // the connection has none left, or is gone
}

// With every type of key, and the wrong phrase: tests/server/authentication_test.cpp.
TEST_F(Ssh, AsksForThePassPhraseOfAKey)
{
    options.private_keys = {folder / "locked"};
    const ssh_peer peer({.public_key = support::make_key_file(folder / "locked", "ecdsa", "secret")});
    options.pass_phrase = "wrong";
    EXPECT_EQ(refusal(peer), "InvalidOption");
    options.ask_pass_phrase = [](const fs::path&) { return "secret"; };
    EXPECT_EQ(refusal(peer), "") << sentence;
    options.private_keys = {folder / "none"};
    EXPECT_EQ(refusal(peer), "LocalFileError");
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
    EXPECT_EQ(refusal(peer), "") << sentence;
    // The key is refused as its method is not offered.
    EXPECT_THAT(peer.tries(), ElementsAre("publickey", "password bad", "password wrong", "password right"));
    options.password = "other";
    EXPECT_EQ(refusal(peer), "LoginRefused");
    options.password = std::nullopt;
    options.ask_password = [](unsigned attempt) { return attempt == 0 ? std::optional("bad") : std::nullopt; };
    EXPECT_EQ(refusal(peer), "LoginRefused");
    EXPECT_THAT(sentence, testing::HasSubstr("key: refused; password: refused; no other password"))
        << "all of it";
}

TEST_F(Ssh, AnswersTheServersOwnPrompts)
{
    const ssh_peer peer(
        {.rounds = {{{"Password: ", false, "right"}}, {{"Code: ", false, "42"}, {"Room: ", true, "7"}}}});
    options.password = "right";
    EXPECT_EQ(refusal(peer), "LoginRefused") << "nobody knows the code";
    std::vector<std::string> seen;
    options.answer_prompts = [&](const login_prompts& asked) {
        seen = {asked.name, asked.instruction};
        for (const login_prompt& prompt : asked.prompts) {
            seen.push_back(prompt.text + (prompt.echo ? "shown" : "hidden"));
        }
        return std::vector<std::string>{"42", "7"};
    };
    EXPECT_EQ(refusal(peer), "") << sentence;
    EXPECT_THAT(seen, ElementsAre("the name", "the instruction", "Code: hidden", "Room: shown"));
    options.answer_prompts = [](const login_prompts&) { return std::nullopt; };
    EXPECT_EQ(refusal(peer), "LoginRefused");

    const ssh_peer one({.rounds = {{{"Password: ", false, "right"}}}});
    EXPECT_EQ(refusal(one), "") << sentence;
    options.password = std::nullopt;
    options.ask_password = [](unsigned attempt) { return attempt == 0 ? "wrong" : "right"; };
    options.answer_prompts = nullptr;
    EXPECT_EQ(refusal(one), "") << sentence;
}

TEST_F(Ssh, GoesOnWithAnotherMethodWhereOneIsNotEnough)
{
    const ssh_peer peer({.password = "right", .public_key = key, .needs_key_and_password = true});
    options.password = "right";
    EXPECT_EQ(refusal(peer), "") << sentence;
    EXPECT_THAT(peer.tries(), ElementsAre("publickey", "password right"));
}

TEST_F(Ssh, AsksForTheTypeOfKeyThatIsKnown)
{
    const ssh_peer both({.host_keys = {"ed25519", "rsa"}, .password = "p"});
    const std::string host = known_hosts_name("127.0.0.1", both.port());
    options.password = "p";
    known_hosts::append(options.known_hosts_file, {host, "ssh-rsa", both.host_key(1)});
    EXPECT_EQ(refusal(both), "") << sentence;
    EXPECT_EQ(info.key->type, "ssh-rsa");

    const ssh_peer other({.password = "p"});
    const std::string other_host = known_hosts_name("127.0.0.1", other.port());
    known_hosts::append(options.known_hosts_file, {other_host, "ssh-rsa", both.host_key(1)});
    EXPECT_EQ(refusal(other), "HostKeyChanged");
    EXPECT_THAT(other.tries(), IsEmpty());
}

TEST_F(Ssh, TellsALostConnectionFromARefusal)
{
    using enum ssh_peer::cut;
    const std::pair<ssh_peer::cut, const char*> rows[] = {{greeting, "NoConnection"},
                                                          {key_exchange, "ConnectionLost"},
                                                          {login, "ConnectionLost"},
                                                          {channel, "ConnectionLost"}};
    for (const auto& [cut, cause] : rows) {
        EXPECT_EQ(refusal(ssh_peer({.public_key = key, .cut_at = cut})), cause)
            << static_cast<int>(cut) << sentence;
    }
    EXPECT_EQ(refusal(ssh_peer({.public_key = key, .has_sftp = false})), "NotSupported");
    const ssh_peer cutting({.public_key = key, .new_channel = [] {
                                return [](std::string_view) { return std::optional<std::string>(); };
                            }});
    EXPECT_THROW(echo(*connect(cutting.port()), "a"), ConnectionLost);
}

TEST_F(Ssh, WaitsNoLongerThanAllowed)
{
    support::scripted_peer silent;
    silent.on("greeting", support::answer::silence());
    for (const auto limit : {&session_options::connect_timeout, &session_options::total_timeout}) {
        options.connect_timeout = 1h;
        options.*limit = 50ms;
        EXPECT_EQ(refusal(silent), "Timeout");
        EXPECT_THAT(sentence, testing::HasSubstr("no answer within 0.05 s while connecting"));
    }
}

TEST_F(Ssh, WaitsForTheSubsystemAsLongAsAllowed)
{
    for (const bool stops : {false, true}) {
        std::promise<void> end;
        std::stop_source stop;
        const ssh_peer mute({.public_key = key, .before_subsystem = [&] {
                                 stop.request_stop();
                                 end.get_future().wait();
                             }});
        options.stop = stops ? stop.get_token() : std::stop_token();
        options.connect_timeout = stops ? 1h : 1s;
        EXPECT_EQ(refusal(mute), stops ? "Cancelled" : "Timeout") << sentence;
        end.set_value();
    }
}

TEST_F(Ssh, GoesOnWithoutAnAgentThatDoesNotAnswer)
{
    const ssh_peer peer({.password = "right", .public_key = key});
    options.use_agent = true;
    options.private_keys.clear();
    options.password = "right";
    options.on_warning = [&](const std::string& said) { sentence += said; };
    for (const auto& [agent_key, stops] : {std::pair(""s, false), {""s, true}, {key, false}, {key, true}}) {
        std::stop_source stop;
        options.stop = stop.get_token();
        options.connect_timeout = stops ? 1h : 1s;
        const fs::path socket = folder / fmt::format("agent {} {}", agent_key.size(), stops);
        const auto agent =
            run_silent_agent(socket, agent_key, [&, ends = stops] { ends ? stop.request_stop() : false; });
        sentence.clear();
        EXPECT_EQ(refusal(peer), stops ? "Cancelled" : "") << socket;
        EXPECT_THAT(sentence, testing::HasSubstr(stops ? "Interrupted" : "agent")) << socket;
    }
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
    const auto lost = connect(deaf.port());
    const auto kept = connect(awake.port());
    const auto stay = [](sftp::transport& channel, std::chrono::milliseconds how_long) {
        std::array<char, 1> nothing{};
        for (const auto until = std::chrono::steady_clock::now() + how_long;
             std::chrono::steady_clock::now() < until;) {
            channel.wait(false, 100ms);
            channel.read(nothing);
        }
    };
    auto keeping = std::async(std::launch::async, [&] { stay(*kept, 2500ms); });
    lost->write("x");
    EXPECT_THROW(stay(*lost, 20s), ConnectionLost);
    end.set_value();
    keeping.get();
    EXPECT_EQ(echo(*kept, "still here"), "still here");
}

TEST(SocksProxy, IsAskedByNameAndWithAPassword)
{
    const std::string reached("\5\0\0\1\0\0\0\0\0\0", 10);
    const std::string refused("\5\5\0\1", 4);
    const auto connect = [](line_server& proxy, bool has_credentials) {
        sftp::interruptible_wait wait("host", {}, 5s);
        const proxy_address address{
            proxy_address::protocol::socks5h, "127.0.0.1", proxy.port(), "me", "pw", has_credentials};
        return sftp::connect_through(address, "host", 22, wait);
    };
    line_server with_login("\5\2\1"s + '\0' + reached);
    EXPECT_TRUE(connect(with_login, true));
    EXPECT_EQ(with_login.received(), "\5\2\0\2\1\2me\2pw\5\1\0\3\4host\0\x16"s);
    line_server refusing("\5\0"s + refused);
    EXPECT_THAT([&] { (void)connect(refusing, false); },
                testing::ThrowsMessage<ProxyRefused>(testing::HasSubstr("connection refused")));
}

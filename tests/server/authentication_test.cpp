#include "client_error.hpp"
#include "servers.hpp"

#include <sftp/ssh_transport.hpp>

#include <qrftp/tree.hpp>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/wait.h>
#include <unistd.h>

using namespace qrftp;
namespace fs = std::filesystem;

namespace {

void run(const std::string& command)
{
    ASSERT_EQ(std::system((command + " </dev/null >/dev/null 2>&1").c_str()), 0) << command;
}

/// Logins on OpenSSH's server, which accepts the keys that `authorize` was called for.
class Authentication : public testing::Test {
protected:
    static void SetUpTestSuite() { running = new support::servers("sshd proxy"); }
    static void TearDownTestSuite() { delete running; }

    void SetUp() override
    {
        if (running->missing()) {
            GTEST_SKIP() << "a server is not installed";
        }
        ASSERT_TRUE(running->serve());
        fs::create_directories(folder);
        options.ssh_config.only = fs::path();
        options.known_hosts_file = (*running)["KNOWN_HOSTS"];
        options.host_keys = host_key_check::strict;
        options.use_agent = false;
    }
    void TearDown() override
    {
        ::unsetenv("SSH_AUTH_SOCK");
        if (agent_ > 0) {
            ::kill(agent_, SIGTERM);
        }
    }

    fs::path make_key(const std::string& name, const std::string& options_of_keygen)
    {
        run("ssh-keygen -q " + options_of_keygen + " -f " + (folder / name).string());
        return folder / name;
    }
    void authorize(const fs::path& key, const std::string& before = "")
    {
        std::ofstream((*running).path() + "/authorized_keys", std::ios::app)
            << before << support::content(key.string() + ".pub");
    }
    fs::path make_authorized_key(const std::string& name, const std::string& options_of_keygen)
    {
        authorize(make_key(name, options_of_keygen));
        return folder / name;
    }
    /// An agent that ends with the test.
    void start_agent()
    {
        const std::string socket = (folder / "agent").string();
        run("ssh-agent -a " + socket + " | grep -o 'PID=[0-9]*' | cut -c 5- >" + (folder / "pid").string() +
            "; test -S " + socket);
        std::ifstream(folder / "pid") >> agent_;
        ::setenv("SSH_AUTH_SOCK", socket.c_str(), 1);
        options.use_agent = true;
    }
    void configure(const std::string& text)
    {
        const std::string server = "HostName 127.0.0.1\nPort " + (*running)["SSHD_PORT"] + "\nUser " +
                                   (*running)["SSHD_USER"] + "\nIdentityFile " + (*running)["KEY"] +
                                   "\nUserKnownHostsFile " + (*running)["KNOWN_HOSTS"] + "\n";
        std::ofstream(folder / "config") << text << server;
        options.ssh_config.only = folder / "config";
    }

    /// The error with which the login failed; empty when it did not.
    std::string failure(const std::string& host = "127.0.0.1")
    {
        return support::error_of_client([&] {
            server_info info;
            const auto port = static_cast<std::uint16_t>(running->port("SSHD_PORT"));
            sftp::connect_ssh({url_scheme::sftp, host, port, (*running)["SSHD_USER"], "", ""}, options, info);
        });
    }

    static inline support::servers* running = nullptr;
    support::temporary_folder folder;
    session_options options;
    pid_t agent_ = 0;
};

} // namespace

TEST_F(Authentication, TakesPrivateKeysOfEveryTypeAndFormat)
{
    const std::pair<const char*, const char*> rows[] = {{"rsa", "-t rsa -b 2048 -N secret"},
                                                        {"rsa_pem", "-t rsa -b 2048 -m PEM -N secret"},
                                                        {"pkcs8", "-t rsa -b 2048 -m PKCS8 -N secret"},
                                                        {"ecdsa", "-t ecdsa -b 384 -N secret"},
                                                        {"ed25519", "-t ed25519 -N secret"},
                                                        {"open", "-t rsa -b 2048 -m PEM -N ''"}};
    for (const auto& [name, keygen] : rows) {
        options.private_keys = {make_authorized_key(name, keygen)};
        options.pass_phrase = "secret";
        EXPECT_EQ(failure(), "") << name;
        options.pass_phrase = "wrong";
        EXPECT_EQ(failure(), keygen == std::string(rows[5].second) ? "" : "InvalidOption") << name;
    }
    options.private_keys = {make_key("stranger", "-t ed25519 -N ''")};
    EXPECT_EQ(failure(), "LoginRefused");
}

TEST_F(Authentication, AsksOnceAndOneAtATimeForAllConnections)
{
    std::mutex calls;
    unsigned asked = 0;
    options.user = (*running)["SSHD_USER"];
    options.private_keys = {make_authorized_key("locked", "-t ed25519 -N secret")};
    options.ask_pass_phrase = [&](const fs::path&) { return ++asked == 1 ? "wrong" : "secret"; };
    options.host_keys = host_key_check::accept_new;
    options.known_hosts_file = "/proc/known_hosts"; // cannot be written: every connection asks
    options.confirm_host_key = [&](const host_key&) {
        const std::unique_lock alone(calls, std::try_to_lock);
        EXPECT_TRUE(alone);
        return true;
    };
    session first("sftp://127.0.0.1:" + (*running)["SSHD_PORT"], options);
    const session second = first.clone();
    tree_options four;
    four.jobs = 4;
    send_tree(first, folder, (*running)["HOME_DIR"] + "/sent", four);
    EXPECT_EQ(asked, 2U);
}

TEST_F(Authentication, TakesCertificates)
{
    const fs::path authority = make_key("authority", "-t ed25519 -N ''");
    authorize(authority, "cert-authority ");
    for (const std::string type : {"rsa", "ecdsa", "ed25519"}) {
        const fs::path key = make_key(type, "-t " + type + " -N ''");
        run("ssh-keygen -q -s " + authority.string() + " -I me -n " + (*running)["SSHD_USER"] + ' ' +
            key.string() + ".pub");
        options.private_keys = {key};
        EXPECT_EQ(failure(), "") << type;
        fs::rename(key.string() + "-cert.pub", folder / "certificate");
        EXPECT_EQ(failure(), "LoginRefused") << type;
        options.certificates = {folder / "certificate"};
        EXPECT_EQ(failure(), "") << type;
        options.certificates.clear();
    }
}

TEST_F(Authentication, GoesThroughAllKeysOfTheAgent)
{
    start_agent();
    for (int i = 0; i < 13; ++i) {
        run("ssh-add " + make_key("wrong" + std::to_string(i), "-t ed25519 -N ''").string());
    }
    options.private_keys.clear();
    options.identities_only = true; // not the account's own keys
    const fs::path key = make_authorized_key("right", "-t rsa -b 2048 -N ''");
    run("ssh-add " + key.string());
    fs::remove(key);
    EXPECT_EQ(failure(), "LoginRefused") << "no file names the key";
    options.identities_only = false;
    EXPECT_EQ(failure(), "");
    options.identities_only = true;
    options.private_keys = {key.string() + ".pub"};
    EXPECT_EQ(failure(), "");
}

TEST_F(Authentication, GoesThroughProxies)
{
    options.private_keys = {(*running)["KEY"]};
    options.use_proxy = true;
    ::setenv("http_proxy", ("http://127.0.0.1:" + (*running)["PROXY_PORT"]).c_str(), 1);
    EXPECT_EQ(failure(), "");
    ::setenv("http_proxy", ("http://127.0.0.1:" + (*running)["SSHD_PORT"]).c_str(), 1);
    EXPECT_EQ(failure(), "NoConnection");
    ::unsetenv("http_proxy");
}

TEST_F(Authentication, GoesThroughCommandsAndJumpHosts)
{
    options.known_hosts_file.clear();
    configure("Host command\nProxyCommand bash -c 'exec 3<>/dev/tcp/%h/%p; cat <&3 & cat >&3'\n"
              "Host jump\nProxyJump 127.0.0.1\nHost *\n");
    EXPECT_EQ(failure("command"), "");
    EXPECT_EQ(failure("jump"), "");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a proxy is still there";
    EXPECT_EQ(errno, ECHILD);
    configure("ProxyCommand false\n");
    EXPECT_EQ(failure(), "NoConnection");
}

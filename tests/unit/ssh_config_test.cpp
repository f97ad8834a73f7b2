#include <sftp/ssh_config_loader.hpp>
#include <sftp/ssh_settings.hpp>

#include <qrftp/error.hpp>

#include "local_files.hpp"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qrftp;
using namespace std::chrono_literals;
using sftp::parse_ssh_config;
using sftp::ssh_config;
using testing::ElementsAre;
using testing::Optional;
using testing::Property;
namespace fs = std::filesystem;

namespace {

const sftp::ssh_config_query query{"web.example", "", "me", "/home/me"};

ssh_config parse(const std::string& text, const sftp::ssh_config_query& about = query)
{
    return parse_ssh_config({{text, "config", "/home/me/.ssh"}}, about,
                            [](const fs::path&) { return std::vector<sftp::ssh_config_source>(); });
}

} // namespace

TEST(SshConfig, UnderstandsItsSettings)
{
    const ssh_config all = parse("# comment\n"
                                 "\thostname = www.%h # at the end\n"
                                 "USER \"a b\"\r\n"
                                 "Port=2222\n"
                                 "IdentityFile ~/.ssh/%r@%h\n"
                                 "IdentityFile '%d/100%%/%u'\n"
                                 "IdentitiesOnly yes\n"
                                 "CertificateFile ~/c-cert.pub\n"
                                 "ProxyCommand nc \"%h\" %p # not a comment\n"
                                 "ProxyJump ignored\n"
                                 "UserKnownHostsFile ~/one /two/%k\n"
                                 "GlobalKnownHostsFile none\n"
                                 "StrictHostKeyChecking YES\n"
                                 "HostKeyAlias alias\n"
                                 "ConnectTimeout 1m30\n"
                                 "ServerAliveInterval 15\n"
                                 "ServerAliveCountMax 2\n"
                                 "Unknown \"word\n");
    EXPECT_EQ(all.host_name, "www.web.example");
    EXPECT_EQ(all.user, "a b");
    EXPECT_EQ(all.port, 2222);
    EXPECT_THAT(all.identity_files, ElementsAre("/home/me/.ssh/a b@www.web.example", "/home/me/100%/me"));
    EXPECT_EQ(all.identities_only, true);
    EXPECT_THAT(all.certificate_files, ElementsAre("/home/me/c-cert.pub"));
    EXPECT_EQ(all.proxy_command, "nc \"%h\" %p # not a comment");
    EXPECT_EQ(all.proxy_jump, std::nullopt);
    EXPECT_THAT(all.user_known_hosts_files, Optional(ElementsAre("/home/me/one", "/two/alias")));
    EXPECT_THAT(all.global_known_hosts_files, Optional(testing::IsEmpty()));
    EXPECT_EQ(all.strict_host_key_checking, "yes");
    EXPECT_EQ(all.host_key_alias, "alias");
    EXPECT_EQ(all.connect_timeout, 90s);
    EXPECT_EQ(all.server_alive_interval, 15s);
    EXPECT_EQ(all.server_alive_count_max, 2U);
}

TEST(SshConfig, TakesTheFirstValueOfTheBlocksThatMatch)
{
    // Which of two users the lines choose for web.example.
    const std::pair<const char*, const char*> rows[] = {
        {"Host web.*\n User yes", "yes"},
        {"Host other *.example\n User yes", "yes"},
        {"Host * !web.*\n User no", ""},
        {"Host web\n User no\nHost web.example\n User yes", "yes"},
        {"User yes\nHost web.example\n User no", "yes"},
        {"Match all\n User yes", "yes"},
        {"Match host web.*,other\n User yes", "yes"},
        {"HostName ww\nMatch host web.*\n User no\nMatch originalhost web.*\n User yes", "yes"},
        {"Match !host other user me\n User yes", "yes"},
        {"Match user other\n User no", ""},
        {"Match localuser me\n User yes", "yes"},
        {"Match exec true\n User no\nMatch host web.example exec true\n User no", ""},
        {"Match host other\n User no\nInclude all\nMatch all\n User yes", "yes"},
    };
    for (const auto& [text, user] : rows) {
        EXPECT_EQ(parse(text).user, user) << text;
    }
    EXPECT_EQ(parse("Match user root\n Port 1", {"h", "root", "me", "/"}).port, 1);
    EXPECT_TRUE(parse("IdentityFile none").no_identity_files);
}

TEST(SshConfig, SaysWhereALineMeansNothing)
{
    for (const char* const text : {"\nPort 0", "\nPort x", "\nPort", "\nIdentitiesOnly maybe",
                                   "\nConnectTimeout 1x", "\nMatch user", "\nUser \"open", "\n=x"}) {
        EXPECT_THAT([&] { parse(text); }, testing::Throws<InvalidOption>(Property(&error::path, "config:2")))
            << text;
    }
    EXPECT_THROW(parse("IdentityFile %C"), InvalidOption);
    EXPECT_EQ(parse("Host other\nPort x").port, std::nullopt) << "about another host";
}

TEST(SshConfig, IncludesFilesToABoundedDepth)
{
    std::vector<fs::path> asked;
    const auto includes = [&](const fs::path& pattern) {
        asked.push_back(pattern);
        return pattern.filename() == "block"
                   ? std::vector<sftp::ssh_config_source>{{"Host other\n", "b", "/"}}
                   : std::vector<sftp::ssh_config_source>{{"Include c/*\n", "c", "/c"}};
    };
    const std::string text = "Host other\nInclude no\nHost *\nInclude ~/block\nUser yes";
    EXPECT_EQ(parse_ssh_config({{text, "a", "/a"}}, query, includes).user, "yes") << "in spite of its block";
    EXPECT_THAT(asked, ElementsAre("/home/me/block"));
    EXPECT_THROW(parse_ssh_config({{"Include endless", "a", "/a"}}, query, includes), InvalidOption);
    EXPECT_EQ(asked.at(1), "/a/endless");
    EXPECT_EQ(asked.at(2), "/c/c/*");
}

TEST(SshConfig, IsReadFromFilesThatOthersCannotWriteTo)
{
    const support::temporary_folder home;
    fs::create_directories(home / ".ssh/conf.d");
    const sftp::ssh_config_query about{"h", "", "me", home};
    std::ofstream(home / ".ssh/conf.d/1") << "Port 11\n";
    std::ofstream(home / ".ssh/config") << "Include conf.d/*\nUser of-config\n";
    const ssh_config config = sftp::load_ssh_config({}, about);
    EXPECT_EQ(config.port, 11);
    EXPECT_EQ(config.user, "of-config");
    fs::permissions(home / ".ssh/conf.d/1", fs::perms(0666));
    EXPECT_THROW(sftp::load_ssh_config({}, about), LocalFileError);
    EXPECT_EQ(sftp::load_ssh_config({fs::path()}, about).user, "");
    EXPECT_THROW(sftp::load_ssh_config({home / "none"}, about), LocalFileError);
}

TEST(SshSettings, PreferTheOptionsToTheUrlToTheConfiguration)
{
    const support::temporary_folder folder;
    const fs::path file = folder / "config";
    std::ofstream(file) << "HostName real\nUser conf\nPort 7\nStrictHostKeyChecking yes\nProxyJump a,me@b:9\n"
                           "UserKnownHostsFile /known\nConnectTimeout 5\n";
    session_options options;
    options.ssh_config.only = file;
    url server{url_scheme::sftp, "short", 0, "", "", ""};
    sftp::ssh_settings found = sftp::resolve_settings(server, options);
    EXPECT_EQ(found.known_hosts_name, "[real]:7");
    EXPECT_EQ(found.user, "conf");
    EXPECT_EQ(found.host_keys, host_key_check::strict);
    EXPECT_EQ(found.connect_timeout, 5s);
    EXPECT_THAT(found.user_known_hosts, ElementsAre("/known"));
    EXPECT_THAT(found.proxy_command,
                ElementsAre("ssh", "-F", file.string(), "-J", "a", "-W", "[real]:7", "--", "ssh://me@b:9"));
    server.user = "url";
    server.port = 8;
    options.host_keys = host_key_check::off;
    options.known_hosts_file = "/mine";
    options.connect_timeout = 1s;
    found = sftp::resolve_settings(server, options);
    EXPECT_EQ(found.user, "url");
    EXPECT_EQ(found.known_hosts_name, "[real]:8");
    EXPECT_EQ(found.host_keys, host_key_check::off);
    EXPECT_EQ(found.connect_timeout, 1s);
    EXPECT_THAT(found.user_known_hosts, ElementsAre("/mine"));
    options.user = "option";
    EXPECT_EQ(sftp::resolve_settings(server, options).user, "option");

    std::ofstream(file) << "ProxyCommand connect %h:%p %r %%\n";
    found = sftp::resolve_settings(server, options);
    EXPECT_EQ(found.proxy_command.back(), "exec connect short:8 option %");
    for (const char* const host : {"$(x)", "a b", "-x", "a;b"}) {
        server.host = host;
        EXPECT_THROW(sftp::resolve_settings(server, options), InvalidName) << host;
    }
    fs::remove(file);
}

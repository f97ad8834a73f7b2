#include "credentials.hpp"

#include <gtest/gtest.h>

using namespace qrftp;
using namespace qrftp::cli;

namespace {

using text = std::optional<std::string>;

struct row {
    const char* server;
    const char* user_option;
    text file;
    text environment;
    std::optional<netrc_entry> netrc;
    const char* want; ///< "USER|PASSWORD", "-" for no password
};

const netrc_entry someone{"n", "netrc"};
const netrc_entry nobody{"anonymous", "me@"};
const netrc_entry name_only{"n", ""};

} // namespace

TEST(Credentials, ComeFromTheFirstSourceThatHasThem)
{
    const row rows[] = {
        {"ftp://u:url@h/", "", "file", "env", someone, "u|url"},
        {"ftp://u@h/", "", "file", "env", someone, "u|file"},
        {"ftp://u@h/", "", {}, "env", someone, "u|env"},
        {"ftp://u@h/", "", {}, {}, someone, "u|netrc"},
        {"ftp://u@h/", "", {}, {}, name_only, "u|-"},
        {"ftp://u@h/", "o", {}, "env", {}, "o|env"},
        {"ftp://u@h/", "", "", "env", {}, "u|"},
        {"ftp://h/", "", {}, "env", someone, "n|env"},
        {"sftp://h/", "", {}, "env", {}, "|env"},
        {"sftp://h/", "", {}, {}, {}, "|-"},
        {"sftp://anonymous@h/", "", {}, "env", {}, "anonymous|env"},
        // What is in the environment is for an account, not for everybody.
        {"ftp://h/", "", {}, "env", {}, "|"},
        {"ftp://anonymous@h/", "", {}, "env", {}, "anonymous|"},
        {"ftp://u@h/", "anonymous", {}, "env", {}, "anonymous|"},
        {"ftp://h/", "", {}, "env", nobody, "anonymous|me@"},
    };
    for (const auto& [server, user_option, file, environment, netrc, want] : rows) {
        const credentials found =
            choose_credentials({url::parse(server), user_option, file, environment, netrc});
        EXPECT_EQ(found.user + '|' + found.password.value_or("-"), want) << server << ' ' << want;
    }
}

TEST(Credentials, LookIntoNetrcOnlyForWhatIsMissing)
{
    const auto needs = [](const char* server, const char* user, text file, text environment) {
        return needs_netrc({url::parse(server), user, std::move(file), std::move(environment), {}});
    };
    EXPECT_TRUE(needs("ftp://h/", "", "file", "env"));
    EXPECT_TRUE(needs("ftp://u@h/", "", {}, {}));
    EXPECT_TRUE(needs("ftp://anonymous@h/", "", {}, "env"));
    EXPECT_FALSE(needs("ftp://u@h/", "", {}, "env"));
    EXPECT_FALSE(needs("ftp://u:p@h/", "", {}, {}));
    EXPECT_FALSE(needs("sftp://h/", "u", "file", {}));
}

#include "netrc.hpp"

#include <array>
#include <gtest/gtest.h>

using namespace qrftp::cli;

TEST(Netrc, GivesAPasswordToTheRightHostAndUserOnly)
{
    constexpr auto text = "# machine h login no password no\n"
                          "machine h login a password one\n"
                          "machine h\n\tlogin b\n\tpassword \"two words\"\n"
                          "machine other login a password \"a \\\" b\" account x\n"
                          "machine password login login password machine\n"
                          "default login anonymous password me@";
    const std::array<std::string, 3> rows[] = {
        {"h", "", "a one"},
        {"h", "a", "a one"},
        {"h", "b", "b two words"},
        {"h", "c", ""},
        {"other", "", "a a \" b"},
        {"password", "", "login machine"},
        {"nowhere", "", "anonymous me@"},
        {"nowhere", "a", ""},
        {"nowhere", "anonymous", "anonymous me@"},
    };
    for (const auto& [host, user, want] : rows) {
        const auto found = find_in_netrc(text, host, user);
        EXPECT_EQ(found ? found->login + ' ' + found->password : "", want) << host << ' ' << user;
    }
    for (const char* broken : {"", "machine", "machine h", "machine h login", "machine h password",
                               "login a password b", "machine \"h"}) {
        const auto found = find_in_netrc(broken, "h", "");
        EXPECT_TRUE(!found || found->password.empty()) << broken;
    }
}

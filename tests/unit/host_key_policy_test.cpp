#include <host_key_policy.hpp>

#include <client_error.hpp>

#include "local_files.hpp"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qrftp;
using enum host_key_check;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

/// A key of a type; what follows the type in its encoding is not looked at.
host_key make_key(const std::string& type, const std::string& content)
{
    return {"host", type, std::string(3, '\0') + static_cast<char>(type.size()) + type + content};
}

const host_key ed25519 = make_key("ssh-ed25519", "one");
const host_key changed_ed25519 = make_key("ssh-ed25519", "two");
const host_key rsa = make_key("ssh-rsa", "one");

class HostKeyPolicy : public testing::Test {
protected:
    /// Why the key is refused; empty when it is accepted.
    std::string refusal(const host_key& shown)
    {
        return support::error_of_client([&] { host_key_policy("host", settings).check(shown); });
    }

    support::temporary_folder folder;
    fs::path user = folder / "user";
    fs::path second = folder / "second";
    fs::path global = folder / "global";
    std::vector<std::string> warnings;
    host_key_policy::settings settings{
        accept_new, {user, second}, {global}, {}, [this](const std::string& sentence) {
            warnings.push_back(sentence);
        }};
};

} // namespace

TEST_F(HostKeyPolicy, RemembersANewKeyAndRefusesAnother)
{
    EXPECT_EQ(refusal(ed25519), "");
    EXPECT_THAT(warnings, ElementsAre(HasSubstr("Added the key of host (ssh-ed25519 SHA256:")));
    EXPECT_EQ(refusal(ed25519), "");
    EXPECT_EQ(warnings.size(), 1U);
    EXPECT_EQ(refusal(changed_ed25519), "HostKeyChanged");
    EXPECT_EQ(refusal(rsa), "HostKeyChanged") << "of another type, so not new";
    EXPECT_FALSE(fs::exists(second));
    settings.check = off;
    EXPECT_EQ(refusal(changed_ed25519), "");
}

TEST_F(HostKeyPolicy, LooksAtEveryFile)
{
    std::ofstream(user) << (changed_ed25519.line() + '\n');
    EXPECT_EQ(refusal(ed25519), "HostKeyChanged");
    std::ofstream(global) << (ed25519.line() + '\n');
    settings.check = strict;
    EXPECT_EQ(refusal(ed25519), "") << "a stale line elsewhere does not matter";
    std::ofstream(second) << ("@revoked * " + ed25519.line().substr(5) + '\n');
    EXPECT_EQ(refusal(ed25519), "HostKeyRevoked");
}

TEST_F(HostKeyPolicy, AcceptsNothingNewWhereItMayNot)
{
    settings.check = strict;
    EXPECT_EQ(refusal(ed25519), "HostKeyUnknown");
    settings.check = accept_new;
    settings.confirm = [](const host_key& shown) { return shown != ed25519; };
    EXPECT_EQ(refusal(ed25519), "HostKeyUnknown");
    EXPECT_FALSE(fs::exists(user));
    EXPECT_EQ(refusal(rsa), "");
    fs::remove(user);
    fs::create_directory(user);
    EXPECT_EQ(refusal(ed25519), "LocalFileError") << "what cannot be read may know another key";
}

#include <qrftp/error.hpp>
#include <qrftp/known_hosts.hpp>

#include "local_files.hpp"

#include <fstream>
#include <future>
#include <gtest/gtest.h>

using namespace qrftp;
using namespace std::string_literals;
using enum host_key_match;
namespace fs = std::filesystem;

namespace {

// Made by ssh-keygen: two ed25519 keys, an ECDSA and an RSA key, "a" and "[a]:2222" hashed.
const std::string ed25519_key =
    "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJYgTVSx20TI73F1b3LI3SRjFBohcP6knrEuL1KZGolE";
const std::string other_ed25519 =
    "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIBTeQ5FmbXRrcxr5Y3cTe2liaeRXCUYud8DFjD782dQ/";
const std::string ecdsa_key =
    "ecdsa-sha2-nistp256 "
    "AAAAE2VjZHNhLXNoYTItbmlzdHAyNTYAAAAIbmlzdHAyNTYAAABBBMT1MVc6c2O18kyxhdgz1jZl4FWLQBMJjg+y"
    "nPWMGMs8yZbmnqV+sDKOsnzUFiqgbSt884ipus+F9c2S/Mf5zeI=";
const std::string rsa_blob =
    "AAAAB3NzaC1yc2EAAAADAQABAAAAgQDIA2g8M2DtXG0OeXcby3+slLxPtZeQkP8Mg/"
    "1KS9iujclMpbNT2N9AuaKrfm9XCEDcAFKtpmDGmPUj"
    "qmPGgNFgUQbFaZpmSCjOlXPlHK54GlMEU1Cbhta8wMgOvtUcftsG6ZR+3hPhH9sL75Hl19LI75zCjLxnWXF5VityfvhCjw==";
const std::string hashed_a = "|1|j2Gj+HQgzvxgdqXavQLf+JD8eFo=|LJ7MV1S5DACbrz3YlH2dwe+Ky8c=";
const std::string hashed_port = "|1|zsILEPujXLhjyJDHtOEDYFeurCU=|SvJyUyEx2Odeu5yZbiMC1J/X6vE=";

std::string line(const std::string& hosts, const std::string& key)
{
    return hosts + ' ' + key + '\n';
}

host_key key(const std::string& text)
{
    return known_hosts(line("a", text)).keys_of("a").at(0);
}

const std::string known_line = line("a", ed25519_key);
const std::string other_line = line("a", other_ed25519);
const std::string ecdsa_line = line("a", ecdsa_key);

/// What the ed25519 key is to `host` in a file.
host_key_match match(const std::string& file, const std::string& host = "a")
{
    const host_key shown = key(ed25519_key);
    return known_hosts(file).match({host, shown.type, shown.blob});
}

} // namespace

TEST(KnownHosts, AreNamedAsOpenSshDoes)
{
    EXPECT_EQ(key(ecdsa_key).line(), "a " + ecdsa_key);
    EXPECT_EQ(key(ecdsa_key).fingerprint(), "SHA256:l8hXV0rTUZZFggp2MKOqMJInj1EIODPjFkhMG5KBoQE");
    EXPECT_EQ(key("rsa-sha2-512 " + rsa_blob).fingerprint(),
              "SHA256:w9l+IvPS4WJLUq/9cdg93XK7pyTev5lR6MNNZ6oQ4Qc");
    EXPECT_EQ((host_key{"h", "rsa-sha2-256", "b"}).line(), "h ssh-rsa Yg==");
    EXPECT_EQ(known_hosts_name("A", 22), "a");
    EXPECT_EQ(known_hosts_name("[B]", 21), "[b]:21");
    known_hosts source(known_line);
    const known_hosts moved = std::move(source);
    EXPECT_EQ(source.keys_of("a"), moved.keys_of("a"));
}

TEST(KnownHosts, FindAKeyOnAnyLine)
{
    for (const std::string& file :
         {line("A", ed25519_key + " comment"), line("b,,?,b,", ed25519_key), line("a*", ed25519_key),
          line("*,!b*,!aa", ed25519_key), line(hashed_a, ed25519_key), known_line + other_line,
          other_line + known_line + ecdsa_line, line("*", other_ed25519) + known_line,
          "@revoked " + other_line + known_line, "b 1\r\n" + known_line,
          "#\r\n\r\n \t a\t \t" + ed25519_key + "\r\r\nb 1"}) {
        EXPECT_EQ(match(file), known) << file;
        EXPECT_EQ(match(file, "A"), known) << file;
    }
    for (const std::string& file :
         {line("[a]:2222", ed25519_key), line("[*]:22?2", ed25519_key), line(hashed_port, ed25519_key)}) {
        EXPECT_EQ(match(file, "[a]:2222"), known) << file;
        EXPECT_EQ(match(file), unknown) << file;
    }
    EXPECT_EQ(match(line("b,*.x?z", ed25519_key), "a.x.xyz"), known);
    EXPECT_EQ(match(line("*a*a*a*a*", ed25519_key), std::string(3000, 'a')), known);
    EXPECT_EQ(match(line("*a*a*a*a*b", ed25519_key), std::string(3000, 'a')), unknown);
    EXPECT_EQ(known_hosts(line("*,!b", ecdsa_key) + "@revoked " + known_line + "@cert-authority " + known_line +
                          known_line)
                  .keys_of("A"),
              (std::vector{key(ecdsa_key), key(ed25519_key)}));
}

TEST(KnownHosts, TellOtherKeysOfTheHost)
{
    for (const std::string& file :
         {other_line, line(hashed_a, other_ed25519), ecdsa_line + other_line, other_line + ecdsa_line}) {
        EXPECT_EQ(match(file), changed) << file;
    }
    for (const std::string& file : {ecdsa_line, line("a", "rsa-sha2-512 " + rsa_blob)}) {
        EXPECT_EQ(match(file), other_type) << file;
    }
    for (const std::string& file : {known_line + "@revoked " + line("*", ed25519_key),
                                    "@revoked\t" + line(hashed_a, ed25519_key) + known_line}) {
        EXPECT_EQ(match(file), revoked) << file;
    }
    EXPECT_EQ(known_hosts(line("a", "ssh-rsa " + rsa_blob)).match({"a", "rsa-sha2-256", "other"}), changed);
}

TEST(KnownHosts, PassOverWhatIsAboutOthersOrCannotBeRead)
{
    for (const std::string& file :
         {""s, line("!b", ed25519_key), line("#,a", ed25519_key), "a 1024 35 1234567890"s,
          line("a", ed25519_key.substr(0, 79)), line("a", ed25519_key + "="), "@new " + known_line,
          line(hashed_a.substr(0, 31), ed25519_key), line("|1||", ed25519_key),
          "@revoked " + line("b", ed25519_key), "@revoked " + other_line, "@revoked @revoked " + known_line,
          "@cert-authority " + known_line, "a\na ssh-ed25519\na ssh-ed25519 AAAA\na \0\xff\r"s,
          line("a", "ssh-rsa " + ed25519_key.substr(12)), line("a", "ssh-ed25519 =" + ed25519_key.substr(13)),
          "a ssh-ed25519 AAAADHNzaC1lZDI1NTE5"s}) {
        EXPECT_EQ(match(file), unknown) << file;
    }
    for (const std::string& hosts : {"a"s, hashed_a, "b,*a?b"s, "*,!A*"s, "!a*,*"s}) {
        EXPECT_EQ(match(line(hosts, ed25519_key), "ab"), unknown) << hosts;
    }
}

TEST(KnownHosts, AreReadAndAppendedToWithoutALineLost)
{
    const support::temporary_folder folder;
    const fs::path root = folder / "\xff";
    const fs::path file = root / "ssh/known";
    const host_key shown = key(ed25519_key);
    EXPECT_EQ(known_hosts::read(file).match(shown), unknown);
    known_hosts::append(file, shown);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(root / "ssh").permissions(), fs::perms(0700));
    std::ofstream(file, std::ios::app) << "# cut";
    for (const std::string host : {"*", "a?", "!a", "a,b", "", "x\nb", "#", "@a", "|1|"}) {
        EXPECT_THROW(known_hosts::append(file, {host, shown.type, shown.blob}), LocalFileError) << host;
    }
    EXPECT_THROW(known_hosts::append(file, {"a", "ssh-rsa A\n* ssh-ed25519", shown.blob}), LocalFileError);
    std::vector<std::future<void>> adding;
    for (int i = 0; i < 100; ++i) {
        adding.push_back(
            std::async(std::launch::async, [&] { known_hosts::append(file, key(other_ed25519)); }));
    }
    adding.clear();
    EXPECT_EQ(known_hosts::read(file).keys_of("a").size(), 101U);
    EXPECT_EQ(known_hosts::read(file / "below a file").match(shown), unknown);
    for (const fs::path& bad : {root, fs::path("/proc/self/mem"), root / "a\0b"s}) {
        EXPECT_THROW((void)known_hosts::read(bad), LocalFileError) << bad;
    }
    for (const fs::path& bad : {root, file / "x", fs::path()}) {
        EXPECT_THROW(known_hosts::append(bad, shown), LocalFileError) << bad;
    }
}

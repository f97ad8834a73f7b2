#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <qrftp/known_hosts.hpp>
#include <unistd.h>
#include <zorbel/io/common/file/errors.hpp>
using namespace qrftp;
using namespace std::string_literals;
using namespace ZORBEL::io::common::file;
using enum host_key_match;
namespace fs = std::filesystem;

// Made by ssh-keygen: two ed25519 keys, an ECDSA and an RSA key, "a" and "[a]:2222" hashed.
static const std::string A = "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJYgTVSx20TI73F1b3LI3SRjFBohcP6knrEuL1KZGolE";
static const std::string B = "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIBTeQ5FmbXRrcxr5Y3cTe2liaeRXCUYud8DFjD782dQ/";
static const std::string C =
    "ecdsa-sha2-nistp256 "
    "AAAAE2VjZHNhLXNoYTItbmlzdHAyNTYAAAAIbmlzdHAyNTYAAABBBMT1MVc6c2O18kyxhdgz1jZl4FWLQBMJjg+y"
    "nPWMGMs8yZbmnqV+sDKOsnzUFiqgbSt884ipus+F9c2S/Mf5zeI=";
static const std::string D =
    "AAAAB3NzaC1yc2EAAAADAQABAAAAgQDIA2g8M2DtXG0OeXcby3+slLxPtZeQkP8Mg/"
    "1KS9iujclMpbNT2N9AuaKrfm9XCEDcAFKtpmDGmPUj"
    "qmPGgNFgUQbFaZpmSCjOlXPlHK54GlMEU1Cbhta8wMgOvtUcftsG6ZR+3hPhH9sL75Hl19LI75zCjLxnWXF5VityfvhCjw==";
static const std::string H = "|1|j2Gj+HQgzvxgdqXavQLf+JD8eFo=|LJ7MV1S5DACbrz3YlH2dwe+Ky8c= ";
static const std::string P = "|1|zsILEPujXLhjyJDHtOEDYFeurCU=|SvJyUyEx2Odeu5yZbiMC1J/X6vE= ";

static host_key key(const std::string& text)
{
    return known_hosts("a " + text).keys_of("a").at(0);
}

TEST(KnownHosts, AreUnderstoodAndNamedAsOpenSSHDoes)
{
    EXPECT_EQ(key(C).line() + key(C).fingerprint(),
              "a " + C + "SHA256:l8hXV0rTUZZFggp2MKOqMJInj1EIODPjFkhMG5KBoQE");
    EXPECT_EQ(key("rsa-sha2-512 " + D).fingerprint(), "SHA256:w9l+IvPS4WJLUq/9cdg93XK7pyTev5lR6MNNZ6oQ4Qc");
    EXPECT_EQ(known_hosts_name("A", 22) + (host_key{"", "rsa-sha2-256", "b"}).line() +
                  known_hosts_name("[B]", 21),
              "a ssh-rsa Yg==[b]:21");
    const std::string a = "a " + A + '\n', b = "a " + B + '\n', c = "a " + C + '\n', no = "@revoked ",
                      stars = "*a*a*a*a*", many(3000, 'a');
    // What the key A is to a host in each of the files.
    const std::tuple<std::string, host_key_match, std::vector<std::string>> rows[] = {
        {"a",
         known,
         {"A " + A + " c", "b,,?,b, " + A, "a* " + A, "*,!b*,!aa " + A, a + b, b + a + c, no + b + a,
          "b 1\r\n" + a}},
        {"a", known, {"#\r\n\r\n \t a\t \t" + A + "\r\r\nb 1"}},
        {"A", known, {a, H + A}},
        {"a.x.xyz", known, {"b,*.x?z " + A}},
        {"[a]:2222", known, {"[a]:2222 " + A, "[*]:22?2 " + A, P + A}},
        {many, known, {stars + " " + A}},
        {many, unknown, {stars + "b " + A}},
        {"a", changed, {b, H + B, c + b, b + c}},
        {"a", other_type, {c, "a rsa-sha2-512 " + D}},
        {"[a]:2222", unknown, {a, H + A}},
        {"a", revoked, {a + no + "* " + A, no + "\t" + H + A + "\n" + a}},
        {"a",
         unknown,
         {"", "[a]:2222 " + A, P + A, "!b " + A, "#,a " + A, "a 1024 35 1234567890", "a " + A.substr(0, 79),
          "@new " + a}},
        {"a",
         unknown,
         {H.substr(0, 31) + " " + A, "|1|| " + A, no + "b " + A, no + b, no + no + a, "@cert-authority " + a}},
        {"a",
         unknown,
         {"a\na ssh-ed25519\na ssh-ed25519 AAAA\na \0\xff\r"s, "a ssh-rsa " + A.substr(12), "a " + A + "="}},
        {"a", unknown, {"a ssh-ed25519 =" + A.substr(13), "a ssh-ed25519 AAAADHNzaC1lZDI1NTE5"}},
        {"ab", unknown, {a, H + A, "b,*a?b " + A, "*,!A* " + A, "!a*,* " + A}}};
    for (const auto& [host, want, files] : rows)
        for (const auto& file : files)
            EXPECT_EQ(known_hosts(file).match({host, key(A).type, key(A).blob}), want)
                << host << " in " << file;
    EXPECT_EQ(known_hosts("a ssh-rsa " + D).match({"a", "rsa-sha2-256", "other"}), changed);
    EXPECT_EQ(known_hosts("*,!b " + C + '\n' + no + a + "@cert-authority " + a + a).keys_of("A"),
              (std::vector{key(C), key(A)}));
}

TEST(KnownHosts, AreReadAndAppendedToWithoutALineLost)
{
    const fs::path root = testing::TempDir() + "known_hosts_\xff_" + std::to_string(::getpid()),
                   file = root / "ssh/known";
    EXPECT_EQ(known_hosts::read(file).match(key(A)), unknown);
    known_hosts::append(file, key(A));
    EXPECT_TRUE(fs::status(file).permissions() == fs::perms(0600) &&
                fs::status(root / "ssh").permissions() == fs::perms(0700));
    std::ofstream(file, std::ios::app) << "# cut";
    for (const auto& host : {"*"s, "a?"s, "!a"s, "a,b"s, ""s, "x\nb"s, "#"s, "@a"s, "|1|"s})
        EXPECT_THROW(known_hosts::append(file, {host, key(A).type, key(A).blob}), FileError) << host;
    EXPECT_THROW(known_hosts::append(file, {"a", "ssh-rsa A\n* ssh-ed25519", key(A).blob}), FileError);
    std::vector<std::future<void>> adding;
    for (int i = 0; i < 100; ++i)
        adding.push_back(std::async(std::launch::async, [&] { known_hosts::append(file, key(B)); }));
    adding.clear();
    EXPECT_EQ(known_hosts::read(file).keys_of("a").size(),
              101U + known_hosts::read(file / "x").keys_of("a").size());
    for (const fs::path& bad : {root, fs::path("/proc/self/mem"), root / "a\0b"s})
        EXPECT_THROW(known_hosts::read(bad), FileError) << bad;
    for (const fs::path& bad : {root, file / "x", fs::path()})
        EXPECT_THROW(known_hosts::append(bad, key(A)), FileError) << bad;
    fs::remove_all(root);
}

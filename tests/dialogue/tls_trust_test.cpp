// Which certificates the client accepts beside those of authorities, what it shows of itself, and TLS from the
// first byte on.
#include "tls_peer.hpp"

#include <gmock/gmock.h>
#include <qrftp/client.hpp>
#pragma GCC diagnostic ignored "-Wmissing-field-initializers" // most of a script stays as it is

using namespace qrftp;
using namespace support;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

namespace {

const certificate self_signed{peer};
const certificate renewed{stranger, 1, "IP:127.0.0.1", stranger};

/// As libcurl and `openssl pkey -pubout -outform der | openssl dgst -sha256 -binary | base64` have it.
std::string pin_of(owner key)
{
    unsigned char* bytes = nullptr;
    const auto size = static_cast<std::size_t>(i2d_PUBKEY(shared.keys[key].get(), &bytes));
    unsigned char hash[32];
    EVP_Digest(bytes, size, hash, nullptr, EVP_sha256(), nullptr);
    OPENSSL_free(bytes);
    unsigned char text[45];
    EVP_EncodeBlock(text, hash, sizeof hash);
    return "sha256//" + std::string(reinterpret_cast<const char*>(text));
}

class TlsTrust : public testing::Test {
protected:
    TlsTrust()
    {
        options.user = "u";
        options.password = "s3cret";
        options.known_tls_file = folder / "made" / "known_tls";
        options.on_warning = [this](const std::string& sentence) { warnings.push_back(sentence); };
    }

    /// What fails when a session fetches a file, "CertificateRefused: …"; nothing when it got it.
    std::string failure(const tls_peer& server, const std::string& scheme = "ftp")
    {
        try {
            session client(scheme + "://127.0.0.1:" + server.port(), options);
            EXPECT_EQ(client.fetch_string("f"), "content");
            return "";
        } catch (const error& e) {
            EXPECT_THAT(server.seen(), Not(HasSubstr("content")));
            return std::string(e.name()) + ": " + e.what();
        }
    }
    void known(const tls_peer& server, owner key)
    {
        fs::create_directories(options.known_tls_file.parent_path());
        std::ofstream(options.known_tls_file) << "# kept\nother:21 " << pin_of(authority)
                                              << "\n127.0.0.1:" << server.port() << ' ' << pin_of(key) << '\n';
    }
    /// PEM files of a certificate that `issuer` signed, and of its encrypted key.
    void make_client_certificate(owner issuer)
    {
        options.client_certificate = folder / "cert";
        options.client_key = folder / "key";
        const std::shared_ptr<FILE> cert(std::fopen(options.client_certificate.c_str(), "w"), &std::fclose);
        PEM_write_X509(cert.get(), shared.sign(peer, {issuer}).get());
        const std::shared_ptr<FILE> key(std::fopen(options.client_key.c_str(), "w"), &std::fclose);
        PEM_write_PrivateKey(key.get(), shared.keys[peer].get(), EVP_aes_128_cbc(), nullptr, 0, nullptr,
                             const_cast<char*>("phrase"));
    }

    support::temporary_folder folder;
    session_options options;
    std::vector<std::string> warnings;
};

} // namespace

TEST_F(TlsTrust, TakesAPinInPlaceOfAnAuthority)
{
    struct row {
        std::string name;
        std::vector<owner> pins;
        certificate control, data;
        bool authorities;
        std::string words;
    };
    const row rows[] = {
        {"right", {peer}, self_signed, self_signed, false, ""},
        {"one of two", {stranger, peer}, self_signed, self_signed, false, ""},
        {"expired, of another host", {peer}, {stranger, -1, "DNS:other"}, self_signed, false, ""},
        {"wrong", {stranger}, self_signed, self_signed, false, pin_of(peer)},
        {"wrong, though vouched for", {stranger}, {}, {}, true, pin_of(peer)},
        {"right, and not vouched for", {peer}, self_signed, self_signed, true, "self-signed certificate"},
        {"right, vouched for", {peer}, {}, {}, true, ""},
        {"wrong for data", {peer, stranger}, self_signed, renewed, false, pin_of(stranger)},
    };
    for (const row& each : rows) {
        SCOPED_TRACE(each.name);
        const tls_peer server({.control = each.control, .data = each.data});
        options.pins.clear();
        for (const owner key : each.pins) {
            options.pins.push_back(pin_of(key));
        }
        options.certificate_authorities = each.authorities ? server.authorities() : "";
        const std::string refused = failure(server);
        EXPECT_THAT(refused, each.words.empty()
                                 ? testing::Matcher<std::string>("")
                                 : AllOf(StartsWith("CertificateRefused"), HasSubstr(each.words)));
        EXPECT_EQ(server.seen() == "AUTH|", !each.words.empty() && each.data.key == peer);
    }
    const tls_peer server({});
    options.pins = {"sha256//c2hvcnQ="};
    EXPECT_THAT(failure(server), StartsWith("InvalidOption"));
    options.pins = {pin_of(peer)};
    options.tls = tls_mode::none;
    EXPECT_THAT(failure(server), StartsWith("InvalidOption"));
    EXPECT_EQ(server.seen(), "");
}

TEST_F(TlsTrust, RemembersANewCertificateAndRefusesAnother)
{
    const tls_peer server({.control = self_signed, .data = self_signed});
    EXPECT_THAT(failure(server), AllOf(HasSubstr("self-signed"), HasSubstr(pin_of(peer))));
    options.trust = certificate_trust::accept_new;
    std::vector<std::string> asked;
    bool accepts = false;
    options.confirm_certificate = [&](const server_certificate& shown) {
        asked.push_back(shown.host + ' ' + shown.pin + ' ' + shown.problem);
        return accepts;
    };
    EXPECT_THAT(failure(server), HasSubstr("was not accepted"));
    EXPECT_FALSE(fs::exists(options.known_tls_file));
    EXPECT_THAT(server.seen(), Not(HasSubstr("USER")));
    accepts = true;
    EXPECT_EQ(failure(server), "");
    EXPECT_THAT(warnings, testing::ElementsAre(HasSubstr("Added the key of 127.0.0.1:" + server.port())));
    for (const certificate_trust trust : {certificate_trust::accept_new, certificate_trust::strict}) {
        options.trust = trust;
        EXPECT_EQ(failure(server), "");
        const tls_peer changed({.control = renewed, .data = renewed});
        known(changed, peer);
        EXPECT_THAT(failure(changed),
                    AllOf(HasSubstr("has changed"), HasSubstr(pin_of(peer)), HasSubstr(pin_of(stranger))));
        EXPECT_EQ(changed.seen(), "AUTH|");
        const tls_peer mixed({.control = self_signed, .data = renewed});
        known(mixed, peer);
        EXPECT_THAT(failure(mixed), StartsWith("CertificateRefused"));
        known(server, peer);
    }
    const std::string shown = "127.0.0.1:" + server.port() + ' ' + pin_of(peer) + " self-signed certificate";
    EXPECT_THAT(asked, testing::ElementsAre(shown, shown));
}

TEST_F(TlsTrust, AsksNothingOfWhatAnAuthorityVouchesForAndWarnsWhereItCannotWrite)
{
    options.trust = certificate_trust::accept_new;
    const tls_peer trusted({});
    options.certificate_authorities = trusted.authorities();
    EXPECT_EQ(failure(trusted), "");
    EXPECT_FALSE(fs::exists(options.known_tls_file));
    const tls_peer named_otherwise({.control = {.host = "DNS:other"}, .data = {}});
    std::ofstream(folder / "made") << "no folder";
    EXPECT_EQ(failure(named_otherwise), "");
    EXPECT_THAT(warnings, testing::ElementsAre(HasSubstr("could not add the key of")));
}

TEST_F(TlsTrust, ShowsTheCertificateOfTheClient)
{
    const tls_peer server({.wants_client = true});
    options.certificate_authorities = server.authorities();
    EXPECT_THAT(failure(server), HasSubstr("may want a client certificate (--cert)"));
    make_client_certificate(authority);
    EXPECT_THAT(failure(server), HasSubstr("it needs a pass phrase"));
    std::vector<std::string> phrases{"phrase", "wrong"};
    options.ask_pass_phrase = [&](const fs::path& key) {
        EXPECT_EQ(key, options.client_key);
        std::string next = phrases.back();
        phrases.pop_back();
        return next;
    };
    EXPECT_EQ(failure(server), "");
    options.pass_phrase = "wrong";
    options.ask_pass_phrase = [](const fs::path&) { return std::nullopt; };
    EXPECT_THAT(failure(server), HasSubstr("the pass phrase is wrong"));
    options.ask_pass_phrase = nullptr;
    options.pass_phrase = "phrase";
    EXPECT_EQ(failure(server), "");
    make_client_certificate(stranger);
    EXPECT_NE(failure(server), "");
    options.client_key = server.authorities();
    EXPECT_THAT(failure(server), HasSubstr("no private key"));
    options.client_certificate = options.certificate_authorities = "/etc/passwd";
    EXPECT_THAT(failure(server), HasSubstr("it holds no certificate"));
    options.client_certificate = options.client_key = "";
    EXPECT_THAT(failure(server), HasSubstr("it holds no certificates (--cacert)"));
}

TEST_F(TlsTrust, EncryptsFromTheFirstByteOn)
{
    struct row {
        tls_peer::script how;
        std::string words;
        bool logs_in;
    };
    const row rows[] = {
        {{.implicit = true}, "", true},
        {{.prot = "536 no\r\n", .implicit = true}, "NoEncryption", true},
        {{.data = renewed, .implicit = true}, "CertificateRefused", true},
        {{.plain_data = true, .implicit = true}, "NoEncryption", true},
        {{.cuts_data = true, .implicit = true, .size = "550 no\r\n"}, "SizeMismatch", true},
        {{.control = self_signed, .implicit = true}, "CertificateRefused", false},
        {{}, "begins TLS after its greeting; write ftp://127.0.0.1", false},
    };
    for (const tls_mode mode : {tls_mode::strict, tls_mode::opportunistic}) {
        options.tls = mode;
        for (const row& each : rows) {
            const tls_peer server(each.how);
            options.certificate_authorities = server.authorities();
            const std::string refused = failure(server, "ftps");
            EXPECT_THAT(refused, HasSubstr(each.words));
            EXPECT_EQ(refused.empty(), each.words.empty());
            EXPECT_EQ(server.seen().starts_with("TLS USER|TLS PASS|"), each.logs_in) << server.seen();
        }
    }
    options.tls = tls_mode::none;
    EXPECT_THAT(failure(tls_peer({.implicit = true}), "ftps"), StartsWith("InvalidOption"));
}

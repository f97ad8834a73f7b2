// Client and core against servers whose encryption is not to be trusted: what they get to see, and what the
// caller is told.
#include "tls_peer.hpp"
#include <gmock/gmock.h>
#include <qrftp/client.hpp>
#include <zorbel/io/ftp/core.hpp>
#pragma GCC diagnostic ignored "-Wmissing-field-initializers" // most of a script stays as it is
using namespace support;
using testing::HasSubstr;
using script = tls_peer::script;
namespace core = zorbel::io::ftp::core;
const std::string seen = "AUTH|", in = "AUTH|TLS USER|TLS PASS|", refused = "CertificateRefused",
                  none = "NoEncryption";
const std::tuple<const char*, certificate, const char*> bad_certificates[] = {
    {"of an unknown authority", {stranger}, "unable to get local issuer certificate"},
    {"of another host", {.host = "DNS:other.example"}, "'127.0.0.1'"},
    {"expired", {.ends = -1}, "certificate has expired"},
    {"self-signed", {peer}, "self-signed certificate"}};
/// The key of what is thrown when the client ("strict", "opportunistic") or the core logs in and does `what`,
/// and the sentence.
static std::pair<std::string, std::string> error_of(const tls_peer& server, const std::string& by,
                                                    const std::string& what, std::string& got)
try {
    const std::filesystem::path local = server.authorities() + ".local";
    std::ofstream(local) << (what == "send" ? "content" : "");
    if (by == "core") {
        core::curl_ptr connection;
        core::connect(connection, "ftp://127.0.0.1", "u", "s3cret", std::stol(server.port()), "", "strict",
                      false, server.authorities(), true, true, 1, 1);
        if (what == "list")
            got = core::list(connection, "");
        if (what == "fetch")
            core::receive_file(connection, u"f", local.u16string(), false),
                std::getline(std::ifstream(local), got);
        if (what == "send")
            core::send_file(connection, local.u16string(), u"f", false);
    } else {
        qrftp::session_options options;
        options.user = "u";
        options.password = "s3cret";
        options.certificate_authorities = server.authorities();
        options.tls = by == "strict" ? qrftp::tls_mode::strict : qrftp::tls_mode::opportunistic;
        qrftp::session client("ftp://127.0.0.1:" + server.port(), options);
        if (what == "list")
            got += client.list().skipped.at(0);
        if (what == "fetch")
            got += client.fetch_string("f");
        if (what == "send")
            client.send(local, "f");
    }
    return {"nothing", ""};
} catch (const qrftp::error& error) {
    return {std::string(error.name()), error.what()};
} catch (const std::exception& error) {
    const auto key = dynamic_cast<const foundation::core::except::IMsgIDException&>(error).identifier();
    return {key.substr(key.rfind(':') + 1), error.what()};
}
TEST(Tls, UntrustedServersSeeNoLogin)
{
    const std::string injected = "220 x\r\n331 y\r\n230 z\r\n", go = "234 go\r\n",
                      early = "plaintext received before TLS started";
    std::vector<std::tuple<std::string, script, std::string, std::string, std::string>> rows{
        {"trusted", {}, "nothing", "", in},
        {"no TLS", {.auth = "504 no\r\n"}, none, "504 no", seen + seen},
        {"in the clear after 234", {.strips = injected}, none, "wrong version number", seen},
        {"injected", {.auth = go + injected}, none, early, seen},
        {"PROT refused", {.prot = "536 no\r\n"}, none, "536 no", in + "TLS PBSZ|TLS PROT|"},
        // The core leaves versions to OpenSSL and to libcurl, of which newer ones do not allow this one.
        {"TLS 1.1", {.newest = TLS1_1_VERSION}, none, "protocol", seen}};
    for (const auto& [name, shown, words] : bad_certificates)
        rows.push_back({name, {.control = shown}, refused, words, seen});
    for (const auto& [name, how, expected, words, commands] : rows)
        for (const std::string by : {"strict", "opportunistic", "core"}) {
            SCOPED_TRACE(name + ", " + by);
            const tls_peer server(how);
            std::string got;
            const auto [error, sentence] = error_of(server, by, "nothing", got);
            const bool enters =
                expected == "nothing" || (by == "core" && how.newest != 0 && error == "nothing");
            EXPECT_EQ(error, enters ? "nothing" : by == "core" ? "NoConnection" : expected);
            EXPECT_THAT(sentence, HasSubstr(by == "core" ? "" : words));
            EXPECT_EQ(server.seen().substr(0, enters ? in.size() : std::string::npos), enters ? in : commands);
        }
}
TEST(Tls, DataConnectionsAreEncryptedToo)
{
    std::vector<std::tuple<std::string, script, std::string>> rows{
        {"trusted", {}, ""}, {"clear", {.plain_data = true}, "No encrypted"}};
    for (const auto& [name, shown, words] : {bad_certificates[0]})
        rows.push_back({name, {.data = shown}, words});
    for (const auto& [name, how, words] : rows)
        for (const std::string by : {"strict", "core"})
            for (const std::string what : {"list", "fetch", "send"}) {
                // What is left over on the control connection makes libcurl 7.88 loop for ever when the core
                // puts its folder back.
                if (by == "core" && what != "list" && name != "trusted")
                    continue;
                SCOPED_TRACE(name + ", " + by + " " + what);
                const tls_peer server(how);
                std::string got;
                const auto [error, sentence] = error_of(server, by, what, got);
                EXPECT_THAT(sentence, HasSubstr(by == "core" ? "" : words)) << error;
                EXPECT_EQ((got + server.seen()).find("content") != std::string::npos, name == "trusted");
                // A listing of the core's that fails is an empty one.
                EXPECT_EQ(error == "nothing", name == "trusted" || (by == "core" && what == "list"));
            }
}

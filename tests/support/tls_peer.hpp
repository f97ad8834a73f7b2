#pragma once
#include "guarded.hpp"
#include "local_files.hpp"
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <thread>
#include <vector>
namespace support {
enum owner { authority, stranger, peer };
struct certificate {
    owner issuer = authority;
    int ends = 1; ///< days from now
    std::string host = "IP:127.0.0.1";
    owner key = peer;
};
/// What all peers share. The process's OpenSSL is to allow any version, so that it is the client that refuses
/// an old one.
inline const struct tls_peers {
    support::temporary_folder folder{};
    std::shared_ptr<EVP_PKEY> keys[3];
    tls_peers()
    {
        std::signal(SIGPIPE, SIG_IGN), setenv("OPENSSL_CONF", (folder / "conf").c_str(), 1);
        std::ofstream(folder / "conf") << "openssl_conf=a\n[a]\nssl_conf=b\n[b]\nsystem_default=c\n"
                                          "[c]\nMinProtocol=TLSv1\nCipherString=DEFAULT@SECLEVEL=0\n";
        for (auto& key : keys)
            key.reset(EVP_EC_gen("P-256"), EVP_PKEY_free);
        const std::shared_ptr<FILE> file(std::fopen((folder / "authority").c_str(), "w"), &std::fclose);
        PEM_write_X509(file.get(), sign(authority, {}).get());
    }
    std::shared_ptr<X509> sign(owner subject, const certificate& how) const
    {
        const std::shared_ptr<X509> made(X509_new(), X509_free);
        X509_set_version(made.get(), X509_VERSION_3);
        X509_time_adj_ex(X509_getm_notBefore(made.get()), -2, 0, nullptr);
        X509_time_adj_ex(X509_getm_notAfter(made.get()), how.ends, 0, nullptr);
        const auto* const names = reinterpret_cast<const unsigned char*>("ASP");
        X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC, names + subject, 1,
                                   -1, 0);
        X509_NAME_add_entry_by_txt(X509_get_issuer_name(made.get()), "CN", MBSTRING_ASC, names + how.issuer, 1,
                                   -1, 0);
        auto* const extension =
            subject == authority
                ? X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, "CA:TRUE")
                : X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, how.host.c_str());
        X509_add_ext(made.get(), extension, -1), X509_EXTENSION_free(extension);
        X509_set_pubkey(made.get(), keys[subject == peer ? how.key : subject].get()),
            X509_sign(made.get(), keys[how.issuer].get(), EVP_sha256());
        return made;
    }
} shared;
/// An FTP server on 127.0.0.1 that encrypts, or fails to, as the test says. No wait outlasts 5 seconds.
class tls_peer {
public:
    struct script {
        std::string auth = "234 go\r\n",
                    prot = "200 ok\r\n"; ///< the replies, with all that follows them in the clear
        certificate control{}, data{};
        int newest = 0;            ///< the newest TLS version that is spoken; 0: any
        std::string strips{};      ///< answers the client's first words of TLS; then nothing is encrypted
        bool plain_data = false;   ///< data connections are not encrypted, whatever was agreed on
        bool cuts_data = false;    ///< data connections end without close_notify
        bool implicit = false;     ///< is encrypted from the first byte on
        bool wants_client = false; ///< asks for a certificate of the client that the authority signed
        std::string size = "213 7\r\n", listing = "content";
    };
    explicit tls_peer(script how) : how_(std::move(how)) {}
    ~tls_peer()
    {
        thread_.request_stop(), shutdown(descriptor(listener_), SHUT_RDWR);
    } // which wakes the thread
    std::string port() const { return BIO_get_accept_port(listener_.get()); }
    std::string authorities() const { return shared.folder / "authority"; } ///< trusted, so is the peer
    std::string seen() const
    {
        return seen_.copy();
    } ///< "AUTH|TLS USER|": the verbs, and which came encrypted; uploads, too
private:
    using stream = std::unique_ptr<BIO, decltype(&BIO_free_all)>;
    static int descriptor(const stream& of) { return static_cast<int>(BIO_get_fd(of.get(), nullptr)); }
    static stream listen()
    {
        constexpr timeval deadline{5, 0};
        stream made(BIO_new_accept("127.0.0.1:0"), BIO_free_all);
        BIO_do_accept(made.get()); // listens
        setsockopt(descriptor(made), SOL_SOCKET, SO_RCVTIMEO, &deadline,
                   sizeof deadline); // what it accepts has it, too
        return made;
    }
    static stream accept(const stream& from)
    {
        return {BIO_do_accept(from.get()) > 0 ? BIO_pop(from.get()) : nullptr, BIO_free_all};
    }
    bool encrypt(stream& on, const certificate& with) const
    {
        const std::shared_ptr<SSL_CTX> how(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
        SSL_CTX_set_max_proto_version(how.get(), how_.newest);
        SSL_CTX_use_certificate(how.get(), shared.sign(peer, with).get()),
            SSL_CTX_use_PrivateKey(how.get(), shared.keys[with.key].get());
        if (how_.wants_client) {
            SSL_CTX_set_verify(how.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
            SSL_CTX_load_verify_file(how.get(), authorities().c_str());
        }
        on.reset(BIO_push(BIO_new_ssl(how.get(), 0), on.release()));
        return BIO_do_handshake(on.get()) > 0;
    }
    void serve(stream control)
    {
        const std::map<std::string, std::string> replies{
            {"USER", "331 more\r\n"}, {"PWD", "257 \"/\"\r\n"},
            {"SIZE", how_.size},      {"FEAT", "211-f\r\n MLST type*;\r\n211 end\r\n"},
            {"RNFR", "350 to?\r\n"},  {"MLST", "550 no\r\n"},
            {"AUTH", how_.auth},      {"PROT", how_.prot},
            {"MLSD", "150 \r\n"},     {"LIST", "150 \r\n"},
            {"RETR", "150 \r\n"},     {"STOR", "150 \r\n"}};
        stream passive{nullptr, BIO_free_all};
        std::string line, port;
        if (how_.implicit && !encrypt(control, how_.control))
            return;
        BIO_puts(control.get(), "220 ready\r\n");
        for (char byte[2]{}; BIO_read(control.get(), byte, 1) == 1;) {
            if ((line += *byte).back() != '\n')
                continue;
            const auto verb = line.substr(0, line.find_first_of(" \r"));
            line.clear();
            seen_->append((BIO_method_type(control.get()) == BIO_TYPE_SSL ? "TLS " : "") + verb + "|");
            if (verb == "EPSV")
                passive = listen(), port = BIO_get_accept_port(passive.get());
            const auto reply = verb == "EPSV"           ? "229 ok (|||" + port + "|)\r\n"
                               : replies.contains(verb) ? replies.at(verb)
                                                        : "200 ok\r\n";
            BIO_puts(control.get(), reply.c_str());
            if (reply == "150 \r\n") {
                stream data = accept(passive);
                const bool open = data && (how_.plain_data || encrypt(data, how_.data));
                if (open && verb != "STOR")
                    BIO_puts(data.get(), verb == "RETR" ? "content" : how_.listing.c_str());
                for (int most = open && verb == "STOR" ? 99 : 0; most > 0 && BIO_read(data.get(), byte, 1) == 1;
                     --most)
                    seen_->append(byte);
                if (SSL* encrypted = nullptr; how_.cuts_data && BIO_get_ssl(data.get(), &encrypted) > 0)
                    SSL_set_quiet_shutdown(encrypted, 1);
                data.reset(), BIO_puts(control.get(), open ? "226 done\r\n" : "426 no\r\n");
            }
            if (verb != "AUTH" || !reply.starts_with("234"))
                continue;
            char hello[4096];
            if (how_.strips.empty() ? !encrypt(control, how_.control)
                                    : BIO_read(control.get(), hello, sizeof hello) <= 0)
                return;
            if (!how_.strips.empty())
                BIO_puts(control.get(), how_.strips.c_str());
        }
    }
    script how_;
    guarded<std::string> seen_{};
    stream listener_ = listen();
    std::jthread thread_{[this](const std::stop_token& stop) {
        for (std::vector<std::jthread> each; !stop.stop_requested();)
            if (stream control = accept(listener_))
                each.emplace_back(&tls_peer::serve, this, std::move(control));
    }};
};
} // namespace support

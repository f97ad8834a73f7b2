#include "certificate_check.hpp"

#include "../bare_host.hpp"
#include "../base64.hpp"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <memory>
#include <new>
#include <stdexcept>

namespace qrftp::ftp {

namespace {

/// As libcurl writes public keys (CURLOPT_PINNEDPUBLICKEY).
std::string pin_of(X509* certificate)
{
    unsigned char* bytes = nullptr;
    const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &bytes);
    if (size <= 0) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(
        bytes, [](unsigned char* each) { OPENSSL_free(each); });
    std::string hash(EVP_MAX_MD_SIZE, '\0');
    unsigned int length = 0;
    if (EVP_Digest(bytes, static_cast<std::size_t>(size), reinterpret_cast<unsigned char*>(hash.data()),
                   &length, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("SHA-256 failed");
    }
    hash.resize(length);
    return "sha256//" + to_base64(hash);
}

} // namespace

certificate_check::certificate_check(const url& server, const session_options& options)
    : policy_(server, options), name_(bare_host(server.host))
{
    name_.resize(name_.size() - (name_.ends_with('.') ? 1 : 0));
}

void certificate_check::watch(SSL_CTX* context)
{
    SSL_CTX_set_cert_verify_callback(context, &certificate_check::on_certificate, this);
}

void certificate_check::reset()
{
    shown_ = {};
    thrown_ = nullptr;
}

int certificate_check::on_certificate(X509_STORE_CTX* chain, void* self) noexcept
{
    auto& mine = *static_cast<certificate_check*>(self);
    try {
        return mine.look_at(chain) ? 1 : 0;
    } catch (...) {
        mine.thrown_ = std::current_exception();
        X509_STORE_CTX_set_error(chain, X509_V_ERR_APPLICATION_VERIFICATION);
        return 0;
    }
}

/// Where only authorities count, the name is left to libcurl.
bool certificate_check::look_at(X509_STORE_CTX* chain)
{
    const bool is_trusted = X509_verify_cert(chain) == 1;
    X509* const certificate = X509_STORE_CTX_get0_cert(chain);
    shown_ = {policy_.host(), pin_of(certificate), {}};
    if (!is_trusted) {
        shown_.problem = X509_verify_cert_error_string(X509_STORE_CTX_get_error(chain));
    }
    if (!policy_.may_replace_authorities()) {
        return is_trusted;
    }
    if (is_trusted && !names_server(certificate)) {
        shown_.problem = fmt::format("it is not for \"{}\"", name_);
    }
    if (!policy_.check(shown_)) {
        throw new_certificate{shown_};
    }
    X509_STORE_CTX_set_error(chain, X509_V_OK);
    return true;
}

bool certificate_check::names_server(X509* certificate) const
{
    return X509_check_ip_asc(certificate, name_.c_str(), 0) == 1 ||
           X509_check_host(certificate, name_.data(), name_.size(), 0, nullptr) == 1;
}

} // namespace qrftp::ftp

#include "client_certificate.hpp"

#include "../login_callbacks.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <system_error>

namespace qrftp::ftp {

namespace fs = std::filesystem;

namespace {

using certificate_ptr = std::unique_ptr<X509, decltype(&X509_free)>;
using key_ptr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

class pem_file {
public:
    explicit pem_file(const fs::path& file) : bytes_(BIO_new_file(file.c_str(), "r"), &BIO_free)
    {
        const int error = errno;
        std::error_code ignored;
        if (bytes_ == nullptr || fs::is_directory(file, ignored)) {
            throw LocalFileError(file.string(),
                                 std::error_code(bytes_ == nullptr ? error : EISDIR, std::generic_category()));
        }
    }
    pem_file(const pem_file&) = delete;
    pem_file& operator=(const pem_file&) = delete;
    ~pem_file() { ERR_clear_error(); } // libcurl's next failure is not this one

    [[nodiscard]] certificate_ptr certificate() const
    {
        return {PEM_read_bio_X509_AUX(bytes_.get(), nullptr, nullptr, nullptr), &X509_free};
    }
    /// `on_phrase` is called where the key is encrypted.
    [[nodiscard]] key_ptr key(pem_password_cb* on_phrase, void* user) const
    {
        return {PEM_read_bio_PrivateKey(bytes_.get(), nullptr, on_phrase, user), &EVP_PKEY_free};
    }

private:
    std::unique_ptr<BIO, decltype(&BIO_free)> bytes_;
};

/// A pass phrase that OpenSSL may ask for while it reads a key.
struct pass_phrase {
    std::optional<std::string> text;
    bool is_needed = false;

    static int give(char* buffer, int size, int /*writing*/, void* self) noexcept
    {
        auto& mine = *static_cast<pass_phrase*>(self);
        mine.is_needed = true;
        if (!mine.text || mine.text->size() > static_cast<std::size_t>(size)) {
            return -1;
        }
        mine.text->copy(buffer, mine.text->size());
        return static_cast<int>(mine.text->size());
    }
};

/// Reads the key of `file`, and finds out the pass phrase.
key_ptr read_key(const fs::path& file, pass_phrase& phrase, const session_options& options,
                 const std::string& server)
{
    phrase.text = options.pass_phrase;
    key_ptr key = pem_file(file).key(&pass_phrase::give, &phrase);
    for (unsigned asked = 0; !key && phrase.is_needed && options.ask_pass_phrase && asked < most_questions;
         ++asked) {
        phrase.text = options.ask_pass_phrase(file);
        if (!phrase.text) {
            const char* const why = options.pass_phrase || asked > 0 ? wrong_pass_phrase : no_pass_phrase;
            throw LoginRefused(server, {0, fmt::format("key {}: {}", file.string(), why)});
        }
        mask_secret(*phrase.text);
        key = pem_file(file).key(&pass_phrase::give, &phrase);
    }
    if (!key) {
        throw InvalidOption(file.string(), !phrase.is_needed ? "it holds no private key that can be read"
                                           : phrase.text     ? wrong_pass_phrase
                                                             : no_pass_phrase);
    }
    return key;
}

} // namespace

void set_client_certificate(const curl_ptr& handle, const session_options& options, const std::string& server)
{
    const fs::path& file = options.client_certificate;
    if (file.empty()) {
        if (!options.client_key.empty()) {
            throw InvalidOption(options.client_key.string(),
                                "it is the key of no client certificate; name that too");
        }
        return;
    }
    const certificate_ptr certificate = pem_file(file).certificate();
    if (!certificate) {
        throw InvalidOption(file.string(), "it holds no certificate (PEM)");
    }
    const fs::path& key_file = options.client_key.empty() ? file : options.client_key;
    pass_phrase phrase;
    const key_ptr key = read_key(key_file, phrase, options, server);
    if (X509_check_private_key(certificate.get(), key.get()) != 1) {
        ERR_clear_error();
        throw InvalidOption(key_file.string(), "it is not the key of the client certificate");
    }
    setopt(handle, CURLOPT_SSLCERT, file.string());
    setopt(handle, CURLOPT_SSLKEY, key_file.string());
    if (phrase.is_needed) {
        setopt(handle, CURLOPT_KEYPASSWD, *phrase.text);
    }
}

void check_authorities(const fs::path& file)
{
    if (!pem_file(file).certificate()) {
        throw LocalFileError(file.string(), std::make_error_code(std::errc::invalid_argument),
                             "it holds no certificates (--cacert)");
    }
}

} // namespace qrftp::ftp

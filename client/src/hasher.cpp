#include "hasher.hpp"

#include <boost/crc.hpp>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <qrftp/error.hpp>

#include <array>
#include <new>

namespace qrftp {

namespace {

const EVP_MD* message_digest(hash_algorithm algorithm)
{
    switch (algorithm) {
    case hash_algorithm::sha256:
        return EVP_sha256();
    case hash_algorithm::sha1:
        return EVP_sha1();
    case hash_algorithm::md5:
        return EVP_md5();
    case hash_algorithm::crc32:
        break;
    }
    return nullptr;
}

} // namespace

class hasher::state {
public:
    explicit state(hash_algorithm algorithm) : algorithm_(algorithm)
    {
        if (context_ == nullptr) {
            throw std::bad_alloc();
        }
        const EVP_MD* const digest = message_digest(algorithm);
        if (digest != nullptr && EVP_DigestInit_ex(context_.get(), digest, nullptr) != 1) {
            ERR_clear_error();
            throw InvalidOption(std::string(name_of(algorithm)), "OpenSSL does not allow it on this system");
        }
    }

    void add(std::string_view bytes)
    {
        if (algorithm_ == hash_algorithm::crc32) {
            crc_.process_bytes(bytes.data(), bytes.size());
        } else {
            EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size());
        }
    }

    checksum finish()
    {
        if (algorithm_ == hash_algorithm::crc32) {
            return {algorithm_, fmt::format("{:08x}", crc_.checksum())};
        }
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned size = 0;
        EVP_DigestFinal_ex(context_.get(), digest.data(), &size);
        return {algorithm_, hex_of({reinterpret_cast<const char*>(digest.data()), size})};
    }

private:
    hash_algorithm algorithm_;
    boost::crc_32_type crc_;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_{EVP_MD_CTX_new(), &EVP_MD_CTX_free};
};

hasher::hasher(hash_algorithm algorithm) : state_(std::make_unique<state>(algorithm))
{
}

hasher::hasher(hasher&&) noexcept = default;
hasher& hasher::operator=(hasher&&) noexcept = default;
hasher::~hasher() = default;

void hasher::add(std::string_view bytes)
{
    state_->add(bytes);
}

checksum hasher::finish()
{
    return state_->finish();
}

std::string hex_of(std::string_view bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return digits;
}

std::string_view name_of(hash_algorithm algorithm) noexcept
{
    static constexpr std::array<std::string_view, 4> names{"SHA-256", "SHA-1", "MD5", "CRC32"};
    return names.at(static_cast<std::size_t>(algorithm));
}

} // namespace qrftp

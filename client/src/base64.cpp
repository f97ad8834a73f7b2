#include "base64.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>

namespace qrftp {

namespace {

constexpr std::size_t longest_text = 1U << 20U;

const unsigned char* bytes(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

} // namespace

std::string to_base64(std::string_view data)
{
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0'); // OpenSSL ends it with a NUL character.
    auto* const out = reinterpret_cast<unsigned char*>(text.data());
    text.resize(static_cast<std::size_t>(EVP_EncodeBlock(out, bytes(data), static_cast<int>(data.size()))));
    return text;
}

std::string from_base64(std::string_view text)
{
    if (text.empty() || text.size() > longest_text || text.size() % 4 != 0) {
        return {};
    }
    std::string data(text.size() / 4 * 3, '\0');
    auto* const out = reinterpret_cast<unsigned char*>(data.data());
    if (EVP_DecodeBlock(out, bytes(text), static_cast<int>(text.size())) < 0) {
        return {};
    }
    data.resize(data.size() - static_cast<std::size_t>(std::count(text.end() - 2, text.end(), '=')));
    // OpenSSL takes blanks around the text, "=" inside it and stray bits at its end.
    return to_base64(data) == text ? data : std::string();
}

} // namespace qrftp

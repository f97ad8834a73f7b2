#include <qrftp/known_hosts.hpp>

#include "base64.hpp"
#include "text_file.hpp"
#include "wildcard.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace qrftp {

namespace fs = std::filesystem;

struct known_hosts::content {
    struct line {
        bool revoked = false;
        std::string hosts;
        std::string type;
        std::string blob;
    };
    std::vector<line> lines;
};

namespace {

constexpr std::string_view blanks = " \t";

/// The names of RSA signatures stand for the one type of RSA keys.
std::string_view key_type(std::string_view name)
{
    return name == "rsa-sha2-256" || name == "rsa-sha2-512" ? "ssh-rsa" : name;
}

bool hash_matches(std::string_view hashed, std::string_view host)
{
    constexpr std::string_view mark = "|1|";
    if (!hashed.starts_with(mark)) {
        return false;
    }
    hashed.remove_prefix(mark.size());
    const std::size_t bar = hashed.find('|');
    if (bar == std::string_view::npos) {
        return false;
    }
    const std::string salt = from_base64(hashed.substr(0, bar));
    std::string hash(EVP_MAX_MD_SIZE, '\0');
    unsigned int size = 0;
    if (HMAC(EVP_sha1(), salt.data(), static_cast<int>(salt.size()),
             reinterpret_cast<const unsigned char*>(host.data()), host.size(),
             reinterpret_cast<unsigned char*>(hash.data()), &size) == nullptr) {
        return false;
    }
    hash.resize(size);
    return hashed.substr(bar + 1) == to_base64(hash);
}

/// `host` is in lower case.
bool covers(std::string_view hosts, std::string_view host)
{
    return hosts.starts_with('|') ? hash_matches(hosts, host) : pattern_list_matches(to_lower(hosts), host);
}

} // namespace

std::string_view type_of_key(std::string_view blob)
{
    constexpr std::size_t prefix = 4;
    if (blob.size() < prefix) {
        return {};
    }
    std::size_t length = 0;
    for (const char c : blob.substr(0, prefix)) {
        length = length << 8U | static_cast<unsigned char>(c);
    }
    return length <= blob.size() - prefix ? blob.substr(prefix, length) : std::string_view();
}

std::string host_key::fingerprint() const
{
    std::string hash(EVP_MAX_MD_SIZE, '\0');
    unsigned int size = 0;
    if (EVP_Digest(blob.data(), blob.size(), reinterpret_cast<unsigned char*>(hash.data()), &size, EVP_sha256(),
                   nullptr) != 1) {
        throw std::runtime_error("SHA-256 failed");
    }
    hash.resize(size);
    const std::string text = to_base64(hash);
    return "SHA256:" + text.substr(0, text.find('='));
}

std::string host_key::line() const
{
    return fmt::format("{} {} {}", host, key_type(type), to_base64(blob));
}

std::string known_hosts_name(std::string_view name, std::uint16_t port)
{
    constexpr std::uint16_t ssh_port = 22;
    if (name.starts_with('[') && name.ends_with(']')) { // An IPv6 address as URLs write it.
        name = name.substr(1, name.size() - 2);
    }
    return port == ssh_port ? to_lower(name) : fmt::format("[{}]:{}", to_lower(name), port);
}

known_hosts::known_hosts() : content_(std::make_shared<content>())
{
}

known_hosts::known_hosts(std::string_view text)
{
    auto read = std::make_shared<content>();
    while (!text.empty()) {
        std::string_view rest = take_token(text, "\n");
        rest = rest.substr(0, rest.find_last_not_of('\r') + 1);
        rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
        std::string_view hosts = take_token(rest, blanks);
        const bool revoked = hosts == "@revoked";
        if (revoked) {
            hosts = take_token(rest, blanks);
        }
        if (hosts.starts_with('@') || hosts.starts_with('#')) {
            continue;
        }
        const std::string_view type = key_type(take_token(rest, blanks));
        std::string blob = from_base64(take_token(rest, blanks));
        if (!type.empty() && type == type_of_key(blob)) {
            read->lines.push_back({revoked, std::string(hosts), std::string(type), std::move(blob)});
        }
    }
    content_ = std::move(read);
}

known_hosts known_hosts::read(const fs::path& file)
{
    try {
        return known_hosts(read_text_file(file));
    } catch (const LocalFileError& e) {
        if (e.code() == std::errc::no_such_file_or_directory || e.code() == std::errc::not_a_directory) {
            return {};
        }
        throw;
    }
}

host_key_match known_hosts::match(const host_key& key) const
{
    const std::string host = to_lower(key.host);
    host_key_match result = host_key_match::unknown;
    for (const content::line& entry : content_->lines) {
        const bool same = entry.blob == key.blob;
        if ((entry.revoked && !same) || !covers(entry.hosts, host)) {
            continue;
        }
        if (entry.revoked) {
            return host_key_match::revoked;
        }
        if (same) {
            result = host_key_match::known;
        } else if (result != host_key_match::known && entry.type == key_type(key.type)) {
            result = host_key_match::changed;
        } else if (result == host_key_match::unknown) {
            result = host_key_match::other_type;
        }
    }
    return result;
}

std::vector<host_key> known_hosts::keys_of(std::string_view host) const
{
    const std::string name = to_lower(host);
    std::vector<host_key> keys;
    for (const content::line& entry : content_->lines) {
        if (!entry.revoked && covers(entry.hosts, name)) {
            keys.push_back({name, entry.type, entry.blob});
        }
    }
    return keys;
}

void known_hosts::append(const fs::path& file, const host_key& key)
{
    // Names from outside must not become a pattern, a second line or a line about something else.
    const std::vector<host_key> meant = {{to_lower(key.host), std::string(key_type(key.type)), key.blob}};
    if (key.host.find_first_of("*?") != std::string::npos ||
        known_hosts(key.line()).keys_of(key.host) != meant) {
        throw LocalFileError(file.string(), std::make_error_code(std::errc::invalid_argument),
                             "no line of a known-hosts file can hold this key");
    }
    append_line(file, key.line());
}

} // namespace qrftp

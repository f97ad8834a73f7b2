#include <qrftp/known_hosts.hpp>

#include "local_file.hpp"

#include <foundation/core/except/Exception.hpp>
#include <zorbel/io/common/file/FileSystem.hpp>
#include <zorbel/io/common/file/errors.hpp>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace qrftp {

namespace {

using foundation::core::except::raise;
namespace errors = ZORBEL::io::common::file;
namespace files = zorbel::io::common::file;
namespace fs = std::filesystem;

constexpr std::string_view blanks = " \t";
constexpr std::size_t longest_base64 = 1U << 20U;

std::string lower(std::string_view text)
{
    std::string result(text);
    for (char& c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return result;
}

const unsigned char* bytes(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string to_base64(std::string_view data)
{
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0'); // OpenSSL ends it with a NUL character.
    auto* const out = reinterpret_cast<unsigned char*>(text.data());
    text.resize(static_cast<std::size_t>(EVP_EncodeBlock(out, bytes(data), static_cast<int>(data.size()))));
    return text;
}

/// Empty when `text` is not base64.
std::string from_base64(std::string_view text)
{
    if (text.empty() || text.size() > longest_base64 || text.size() % 4 != 0) {
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

/// The names of RSA signatures stand for the one type of RSA keys.
std::string_view key_type(std::string_view name)
{
    return name == "rsa-sha2-256" || name == "rsa-sha2-512" ? "ssh-rsa" : name;
}

/// Takes the text up to `separators` off `rest`, and the separators behind it.
std::string_view take(std::string_view& rest, std::string_view separators)
{
    const std::string_view token = rest.substr(0, rest.find_first_of(separators));
    rest.remove_prefix(token.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
    return token;
}

/// Goes back to the last "*" only, so the work is at most the product of the lengths.
bool matches(std::string_view pattern, std::string_view host)
{
    constexpr std::size_t none = std::string_view::npos;
    std::size_t place = 0;
    std::size_t star = none;
    std::size_t after_star = 0;
    for (std::size_t i = 0; i < host.size();) {
        if (place < pattern.size() && pattern[place] == '*') {
            star = ++place;
            after_star = i;
        } else if (place < pattern.size() && (pattern[place] == '?' || pattern[place] == host[i])) {
            ++place;
            ++i;
        } else if (star != none) {
            place = star;
            i = ++after_star;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', place) == none;
}

bool hash_matches(std::string_view hashed, std::string_view host)
{
    constexpr std::string_view magic = "|1|";
    if (!hashed.starts_with(magic)) {
        return false;
    }
    hashed.remove_prefix(magic.size());
    const std::size_t bar = hashed.find('|');
    if (bar == std::string_view::npos) {
        return false;
    }
    const std::string salt = from_base64(hashed.substr(0, bar));
    std::string hash(EVP_MAX_MD_SIZE, '\0');
    unsigned int size = 0;
    if (HMAC(EVP_sha1(), salt.data(), static_cast<int>(salt.size()), bytes(host), host.size(),
             reinterpret_cast<unsigned char*>(hash.data()), &size) == nullptr) {
        return false;
    }
    hash.resize(size);
    return hashed.substr(bar + 1) == to_base64(hash);
}

void make_folder_of(const fs::path& file)
{
    const fs::path folder = file.parent_path();
    std::error_code error;
    if (folder.empty() || fs::is_directory(folder, error)) {
        return;
    }
    error.clear();
    const bool made = fs::create_directories(folder, error);
    if (!error && made) {
        fs::permissions(folder, fs::perms::owner_all, error);
    }
    if (error) {
        raise_folder_error(folder, error);
    }
}

/// A file that cannot be read counts as cut off: an empty line too many does no harm.
bool is_cut_off(const fs::path& file)
{
    std::error_code error;
    const std::uintmax_t size = fs::file_size(file, error);
    if (error || size == 0) {
        return false;
    }
    try {
        const auto stream = files::file_system()->open(file, files::OpenMode::read);
        char last = 0;
        stream->seek(size - 1);
        stream->read(&last, 1);
        return last != '\n';
    } catch (const errors::PermissionDenied&) {
        return true;
    }
}

/// One write for the text, so that those of two processes do not mix.
void append_text(const fs::path& file, const std::string& text)
{
    std::error_code error;
    const bool is_new = !fs::exists(file, error);
    const auto stream = files::file_system()->open(file, files::OpenMode::append);
    if (is_new) {
        fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write, error);
        if (error) {
            files::raise_file_error(file, error);
        }
    }
    write_all(*stream, file, text);
    stream->close();
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
    return host + ' ' + std::string(key_type(type)) + ' ' + to_base64(blob);
}

std::string known_hosts_name(std::string_view name, std::uint16_t port)
{
    constexpr std::uint16_t ssh_port = 22;
    if (name.starts_with('[') && name.ends_with(']')) { // An IPv6 address as URLs write it.
        name = name.substr(1, name.size() - 2);
    }
    return port == ssh_port ? lower(name) : '[' + lower(name) + "]:" + std::to_string(port);
}

known_hosts::known_hosts(std::string_view text)
{
    while (!text.empty()) {
        std::string_view rest = take(text, "\n");
        rest = rest.substr(0, rest.find_last_not_of('\r') + 1);
        rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
        std::string_view hosts = take(rest, blanks);
        const bool revoked = hosts == "@revoked";
        if (revoked) {
            hosts = take(rest, blanks);
        }
        if (hosts.starts_with('@') || hosts.starts_with('#')) {
            continue;
        }
        const std::string_view type = key_type(take(rest, blanks));
        std::string blob = from_base64(take(rest, blanks));
        if (!type.empty() && type == type_of_key(blob)) {
            lines_.push_back({revoked, std::string(hosts), std::string(type), std::move(blob)});
        }
    }
}

known_hosts known_hosts::read(const fs::path& file)
{
    try {
        return known_hosts(files::read_whole_file(file));
    } catch (const errors::NoSuchFile&) {
        return {};
    }
}

host_key_match known_hosts::match(const host_key& key) const
{
    const std::string host = lower(key.host);
    host_key_match result = host_key_match::unknown;
    for (const line& entry : lines_) {
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
    const std::string name = lower(host);
    std::vector<host_key> keys;
    for (const line& entry : lines_) {
        if (!entry.revoked && covers(entry.hosts, name)) {
            keys.push_back({name, entry.type, entry.blob});
        }
    }
    return keys;
}

void known_hosts::append(const fs::path& file, const host_key& key)
{
    if (file.empty()) {
        raise<errors::FileError>(fl::ustring(), "it has no name");
    }
    // Names from outside must not become a pattern, a second line or a line about something else.
    const std::vector<host_key> meant = {{lower(key.host), std::string(key_type(key.type)), key.blob}};
    if (key.host.find_first_of("*?") != std::string::npos ||
        known_hosts(key.line()).keys_of(key.host) != meant) {
        raise<errors::FileError>(files::display_path(file), "no line of a known-hosts file can hold this key");
    }
    make_folder_of(file);
    append_text(file, (is_cut_off(file) ? "\n" : "") + key.line() + '\n');
}

bool known_hosts::covers(std::string_view hosts, std::string_view host)
{
    if (hosts.starts_with('|')) {
        return hash_matches(hosts, host);
    }
    const std::string patterns = lower(hosts);
    bool covered = false;
    for (std::string_view rest = patterns; !rest.empty();) {
        const std::string_view pattern = take(rest, ",");
        if (!pattern.starts_with('!')) {
            covered = covered || matches(pattern, host);
        } else if (matches(pattern.substr(1), host)) {
            return false;
        }
    }
    return covered;
}

} // namespace qrftp

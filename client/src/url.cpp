#include <qrftp/url.hpp>

#include <qrftp/error.hpp>
#include <qrftp/glob.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include <arpa/inet.h>

namespace qrftp {

namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view hex_digits = "0123456789abcdefABCDEF";

struct scheme_facts {
    std::string_view name;
    std::uint16_t port;
};
/// In the order of `url_scheme`.
constexpr std::array<scheme_facts, 3> known_schemes{{{"ftp", 21}, {"ftps", 990}, {"sftp", 22}}};

const scheme_facts& facts_of(url_scheme scheme)
{
    return known_schemes.at(static_cast<std::size_t>(scheme));
}

[[noreturn]] void refuse(std::string_view whole, const std::string& reason)
{
    throw InvalidUrl(without_password(whole), reason);
}

bool is_letter(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

bool is_digit(char byte)
{
    return byte >= '0' && byte <= '9';
}

/// How long the scheme is that `text` begins with (RFC 3986, 3.1); 0 where no "://" follows one.
std::size_t scheme_length(std::string_view text) noexcept
{
    const auto* const end = std::find_if(text.begin(), text.end(), [](char byte) {
        return !is_letter(byte) && !is_digit(byte) && byte != '+' && byte != '-' && byte != '.';
    });
    const auto length = static_cast<std::size_t>(end - text.begin());
    return length > 0 && is_letter(text.front()) && text.substr(length).starts_with("://") ? length : 0;
}

/// Where the server begins.
std::size_t authority_start(std::string_view text) noexcept
{
    const std::size_t length = scheme_length(text);
    return length == 0 ? 0 : length + 3;
}

/// The byte that "%XX" at the front of `text` stands for.
std::optional<char> encoded_byte(std::string_view text)
{
    unsigned value = 0;
    if (text.size() < 3 || text[0] != '%' ||
        text.substr(1, 2).find_first_not_of(hex_digits) != std::string_view::npos) {
        return std::nullopt;
    }
    std::from_chars(text.data() + 1, text.data() + 3, value, 16);
    return static_cast<char>(value);
}

/// `part` with each "%XX" as `encoded` of its byte, and all other bytes as `plain` of them.
template <class Encoded, class Plain>
std::string decode(std::string_view part, Encoded encoded, Plain plain)
{
    std::string text;
    while (!part.empty()) {
        const std::optional<char> byte = encoded_byte(part);
        text += byte ? encoded(*byte) : plain(part.front());
        part.remove_prefix(byte ? 3 : 1);
    }
    return text;
}

std::string decode(std::string_view part)
{
    const auto same = [](char byte) { return byte; };
    return decode(part, same, same);
}

std::string decode_to_pattern(std::string_view part)
{
    const auto literal = [](char byte) { return glob_escape({&byte, 1}); };
    const auto plain = [&](char byte) { return byte == '\\' ? literal(byte) : std::string(1, byte); };
    return decode(part, literal, plain);
}

bool has_control_character(std::string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return value < 0x20 || value == 0x7f;
    });
}

/// What somebody may have meant who wrote "ftp:/host/", "host:21" or "me@host:folder".
std::string suggest(std::string_view text)
{
    std::string scheme;
    for (const scheme_facts& one : known_schemes) {
        if (text.starts_with(fmt::format("{}:", one.name))) {
            scheme = one.name;
            text.remove_prefix(std::min(text.find_first_not_of('/', one.name.size() + 1), text.size()));
        }
    }
    text = text.substr(0, text.find('/'));
    const std::size_t colon = std::min(text.rfind(':'), text.size());
    const std::string_view behind = text.substr(std::min(colon + 1, text.size()));
    const bool has_port = !behind.empty() && behind.find_first_not_of(digits) == std::string_view::npos;
    text = has_port ? text : text.substr(0, colon);
    if (text.empty() || (scheme.empty() && !has_port && text.find('@') == std::string_view::npos)) {
        return "one like ftp://example.org/folder or sftp://example.org:2222/folder";
    }
    return scheme.empty() ? fmt::format("ftp://{0}/ or sftp://{0}/", text)
                          : fmt::format("{}://{}/", scheme, text);
}

url_scheme parse_scheme(std::string_view whole)
{
    std::string name(whole.substr(0, scheme_length(whole)));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char byte) { return static_cast<char>(byte | 0x20); }); // Of letters, the small one.
    for (std::size_t i = 0; i < known_schemes.size(); ++i) {
        if (name == known_schemes.at(i).name) {
            return static_cast<url_scheme>(i);
        }
    }
    if (name == "http" || name == "https") {
        refuse(
            whole,
            "web servers speak another protocol; the address of a file server begins with ftp:// or sftp://");
    }
    refuse(whole, fmt::format("write {}", suggest(without_password(whole))));
}

bool is_address(int family, const std::string& text)
{
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return inet_pton(family, text.c_str(), address.data()) == 1;
}

/// Whether resolvers may take `name` for a number: its last label is one, decimal or hexadecimal.
bool ends_in_number(std::string_view name)
{
    name.remove_suffix(name.ends_with('.') ? 1 : 0);
    const std::string_view last = name.substr(name.rfind('.') + 1);
    const bool hexadecimal = last.starts_with("0x") || last.starts_with("0X");
    return !last.empty() && (last.find_first_not_of(digits) == std::string_view::npos ||
                             (hexadecimal && last.find_first_not_of(hex_digits, 2) == std::string_view::npos));
}

std::string parse_host(std::string_view text, std::string_view whole)
{
    std::string host = decode(text);
    if (host.empty()) {
        refuse(whole, "it names no host");
    }
    if (host.front() == '[') {
        if (host.back() != ']' || !is_address(AF_INET6, host.substr(1, host.size() - 2))) {
            refuse(whole, "what its brackets hold is no IPv6 address");
        }
        return host;
    }
    const bool is_name = std::all_of(host.begin(), host.end(), [](char byte) {
        return is_letter(byte) || is_digit(byte) || static_cast<unsigned char>(byte) >= 0x80 || byte == '.' ||
               byte == '-' || byte == '_';
    });
    // A program that is handed a leading "-" would take the host for an option.
    if (!is_name || host.front() == '-') {
        refuse(whole, "its host is no name of one");
    }
    if (ends_in_number(host) && !is_address(AF_INET, host)) {
        refuse(whole, "its host is an address in disguise");
    }
    return host;
}

std::uint16_t parse_port(std::string_view text, std::string_view whole)
{
    std::uint16_t port = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (failure != std::errc() || end != text.data() + text.size()) {
        refuse(whole, "its port is no number from 1 to 65535");
    }
    if (port == 0) {
        refuse(whole, "it names port 0");
    }
    return port;
}

/// The path as the client takes it: what relative means differs between the two protocols.
std::string client_path(url_scheme scheme, const std::string& path)
{
    if (scheme != url_scheme::sftp) {
        return path.substr(path.empty() ? 0 : 1); // The slash after the host only separates.
    }
    if (path == "/" || path == "/~") {
        return {};
    }
    return path.starts_with("/~/") ? path.substr(3) : path;
}

} // namespace

url url::parse(std::string_view whole)
{
    if (has_control_character(whole)) {
        refuse(whole, "it holds a control character");
    }
    url result;
    result.scheme = parse_scheme(whole);
    std::string_view authority = whole.substr(authority_start(whole));
    const std::string_view path = authority.substr(std::min(authority.find('/'), authority.size()));
    authority.remove_suffix(path.size());

    if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
        const std::string_view login = authority.substr(0, at);
        const std::size_t colon = std::min(login.find(':'), login.size());
        result.user = decode(login.substr(0, colon));
        result.password = decode(login.substr(std::min(colon + 1, login.size())));
        authority.remove_prefix(at + 1);
    }
    const std::size_t colon = std::min(authority.find(':', authority.rfind(']') + 1), authority.size());
    result.host = parse_host(authority.substr(0, colon), whole);
    if (colon + 1 < authority.size()) {
        result.port = parse_port(authority.substr(colon + 1), whole);
    }
    result.path = client_path(result.scheme, decode(path));
    result.pattern = client_path(result.scheme, decode_to_pattern(path));
    if (has_control_character(result.user + result.password + result.path)) {
        refuse(whole, "it holds a control character");
    }
    return result;
}

std::string url::server() const
{
    const std::string name = std::string(facts_of(scheme).name) + "://" + host;
    return effective_port() == facts_of(scheme).port ? name : name + ':' + std::to_string(port);
}

std::uint16_t url::effective_port() const noexcept
{
    return port != 0 ? port : facts_of(scheme).port;
}

bool is_url(std::string_view text) noexcept
{
    return scheme_length(text) > 0;
}

std::string_view password_in(std::string_view text) noexcept
{
    const std::size_t start = authority_start(text);
    const std::size_t slash = text.find('/', start);
    const std::size_t in_authority = text.substr(0, slash).rfind('@');
    const bool is_usual = in_authority != std::string_view::npos && in_authority >= start;
    const std::size_t at = is_usual ? in_authority : text.rfind('@'); // The password may hold a slash.
    const std::size_t colon = text.find(':', start);
    return at == std::string_view::npos || colon >= at ? std::string_view()
                                                       : text.substr(colon + 1, at - colon - 1);
}

std::string without_password(std::string_view text)
{
    const std::size_t colon = text.find(':', authority_start(text));
    const std::size_t at = text.rfind('@');
    if (at == std::string_view::npos || colon >= at) {
        return std::string(text);
    }
    return std::string(text.substr(0, colon)).append(":****").append(text.substr(at));
}

} // namespace qrftp

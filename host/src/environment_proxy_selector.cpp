#include "environment_proxy_selector.hpp"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string_view>

namespace foundation::httpproxy {

namespace {

constexpr std::string_view scheme_end = "://";

/// An address that libcurl has taken apart; nothing when libcurl finds it malformed.
class Address {
public:
    static std::optional<Address> parse(const std::string& text)
    {
        Address address;
        if (!address.url_ || curl_url_set(address.url_.get(), CURLUPART_URL, text.c_str(),
                                          CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
            return std::nullopt;
        }
        return address;
    }

    /// The part; nothing when the address has none or it cannot be decoded.
    std::optional<std::string> part(CURLUPart which, unsigned flags = 0) const
    {
        char* text = nullptr;
        if (curl_url_get(url_.get(), which, &text, flags) != CURLUE_OK) {
            return std::nullopt;
        }
        const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
        return std::string(text);
    }

    bool has(CURLUPart which) const { return part(which).has_value(); }

private:
    Address() = default;
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url_{curl_url(), &curl_url_cleanup};
};

std::string environment(std::initializer_list<const char*> names)
{
    for (const char* const name : names) {
        const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): no setenv in the host
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

std::string proxy_setting(const std::string& scheme)
{
    if (scheme == "http") {
        // Not HTTP_PROXY: a web server hands a client's "Proxy:" header to its programs under that name.
        return environment({"http_proxy", "all_proxy", "ALL_PROXY"});
    }
    return scheme == "https" ? environment({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
                             : std::string();
}

std::uint16_t port_of(const Address& address)
{
    const std::string text = address.part(CURLUPART_PORT).value_or("0");
    std::uint16_t port = 0;
    std::from_chars(text.data(), text.data() + text.size(), port);
    return port;
}

ProxyList proxy_of(const std::string& setting)
{
    static constexpr std::array known = {"http", "https", "socks4", "socks4a", "socks5", "socks5h"};
    const bool plain = setting.find(scheme_end) == std::string::npos;
    const auto address = Address::parse(plain ? "http://" + setting : setting);
    if (!address) {
        return {};
    }
    const std::string scheme = address->part(CURLUPART_SCHEME).value_or("");
    const auto host = address->part(CURLUPART_HOST);
    if (!host || std::find(known.begin(), known.end(), scheme) == known.end()) {
        return {};
    }
    std::optional<Credentials> credentials;
    if (address->has(CURLUPART_USER) || address->has(CURLUPART_PASSWORD)) {
        const auto decoded = [&](CURLUPart which) {
            return address->has(which) ? address->part(which, CURLU_URLDECODE) : std::string();
        };
        const auto user = decoded(CURLUPART_USER);
        const auto password = decoded(CURLUPART_PASSWORD);
        if (!user || !password) {
            return {};
        }
        credentials = Credentials{*user, *password};
    }
    const std::string prefix = scheme == "http" ? std::string() : scheme + std::string(scheme_end);
    return {Proxy(prefix + *host, port_of(*address), std::move(credentials))};
}

std::string_view without_brackets(std::string_view host)
{
    const bool bracketed = host.size() > 1 && host.front() == '[' && host.back() == ']';
    return bracketed ? host.substr(1, host.size() - 2) : host;
}

/// Whether no_proxy asks for a direct way to `host`; an empty host is only meant by "*".
bool goes_directly(std::string_view host)
{
    host = without_brackets(host);
    const std::string setting = environment({"no_proxy", "NO_PROXY"});
    for (std::string_view rest = setting; !rest.empty();) {
        const auto end = std::min(rest.find_first_of(", \t"), rest.size());
        std::string_view name = without_brackets(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (name == "*") {
            return true;
        }
        name.remove_prefix(name.starts_with('.') ? 1 : 0);
        if (name.empty() || !boost::algorithm::iends_with(host, name)) {
            continue;
        }
        if (host.size() == name.size() || host[host.size() - name.size() - 1] == '.') {
            return true;
        }
    }
    return false;
}

class EnvironmentProxySelector final : public ProxySelector {
public:
    ProxyList select(const std::string& url) override
    {
        const auto end = url.find(scheme_end);
        if (end == std::string::npos) {
            return {};
        }
        std::string host;
        if (url.size() > end + scheme_end.size()) {
            const auto address = Address::parse(url);
            host = address ? address->part(CURLUPART_HOST).value_or("") : "";
        }
        const std::string setting = proxy_setting(boost::algorithm::to_lower_copy(url.substr(0, end)));
        return setting.empty() || goes_directly(host) ? ProxyList() : proxy_of(setting);
    }
};

} // namespace

ProxySelector::~ProxySelector() = default;

std::shared_ptr<ProxySelector> make_environment_proxy_selector()
{
    return std::make_shared<EnvironmentProxySelector>();
}

} // namespace foundation::httpproxy

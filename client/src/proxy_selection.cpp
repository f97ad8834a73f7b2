#include "proxy_selection.hpp"

#include "base64.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>
#include <qrftp/url.hpp>

#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceReference.h>
#include <foundation/httpproxy/ProxySelector.hpp>
#include <foundation/services/bundle_context.hpp>

#include <array>
#include <memory>

namespace qrftp {

using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyList;
using foundation::httpproxy::ProxySelector;

namespace {

constexpr std::string_view scheme_end = "://";
/// In the order of `proxy_address::protocol`.
constexpr std::array<std::string_view, 6> schemes{"http", "https", "socks4", "socks4a", "socks5", "socks5h"};

std::shared_ptr<ProxySelector> find_selector()
{
    auto context = foundation::services::bundle_context();
    const auto found = context.GetServiceReferences<ProxySelector>(cppmicroservices::LDAPFilter{}.ToString());
    return found.empty() ? nullptr : context.GetService(found.front());
}

/// Takes the scheme off `text`, in front of which none means HTTP.
proxy_address::protocol take_scheme(std::string& text, const std::string& shown)
{
    const std::size_t end = text.find(scheme_end);
    if (end == std::string::npos) {
        return proxy_address::protocol::http;
    }
    for (std::size_t i = 0; i < schemes.size(); ++i) {
        if (text.compare(0, end, schemes.at(i)) == 0) {
            text.erase(0, end + scheme_end.size());
            return static_cast<proxy_address::protocol>(i);
        }
    }
    throw InvalidOption(shown, "the URL of a proxy begins with http://, https://, socks5:// or socks5h://");
}

proxy_address parse_proxy(const std::string& given)
{
    const std::string shown = without_password(given);
    std::string text = given;
    proxy_address address{.kind = take_scheme(text, shown)};
    url parts;
    try {
        parts = url::parse("ftp://" + text); // Behind the scheme, all URLs are alike.
    } catch (const InvalidUrl&) {
        throw InvalidOption(shown,
                            "it is not the URL of a proxy; write one like http://proxy.example.org:3128");
    }
    if (!parts.path.empty()) {
        throw InvalidOption(shown, "the URL of a proxy has no path");
    }
    address.host = parts.host;
    address.port = parts.port;
    address.user = parts.user;
    address.password = parts.password;
    address.has_credentials = !parts.user.empty() || !parts.password.empty();
    return address;
}

proxy_address address_of(const Proxy& proxy)
{
    proxy_address address;
    address.host = proxy.getHost();
    address.kind = take_scheme(address.host, address.host);
    address.port = proxy.getPort();
    address.has_credentials = proxy.hasCredentials();
    if (address.has_credentials) {
        address.user = proxy.getCredentials().user_name;
        address.password = proxy.getCredentials().password;
    }
    return address;
}

std::optional<proxy_address> ask_selector()
{
    const auto selector = find_selector();
    if (selector == nullptr) {
        return std::nullopt;
    }
    // The selector is asked for schemes alone: one proxy serves all FTP and SFTP hosts.
    ProxyList proxies = selector->select("http://");
    if (proxies.empty()) {
        proxies = selector->select("https://");
    }
    return proxies.empty() ? std::nullopt : std::optional(address_of(proxies.front()));
}

} // namespace

std::string proxy_address::url() const
{
    return std::string(schemes.at(static_cast<std::size_t>(kind))).append(scheme_end).append(host);
}

std::optional<proxy_address> select_proxy(const session_options& options)
{
    std::optional<proxy_address> found;
    if (!options.proxy.empty()) {
        found = parse_proxy(options.proxy);
    } else if (options.use_proxy) {
        found = ask_selector();
        if (!found) {
            throw InvalidOption("proxy", "no proxy is named; give its URL (--proxy URL), or set http_proxy, "
                                         "https_proxy or all_proxy");
        }
    }
    if (found && found->has_credentials) {
        mask_secret(found->password);
        mask_secret(to_base64(found->user + ':' + found->password));
    }
    return found;
}

} // namespace qrftp

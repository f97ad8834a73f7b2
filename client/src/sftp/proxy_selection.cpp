#include "proxy_selection.hpp"

#include <qrftp/error.hpp>

#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceReference.h>
#include <foundation/httpproxy/ProxySelector.hpp>
#include <foundation/services/bundle_context.hpp>
#include <qrftp/trace.hpp>

#include <memory>

namespace qrftp::sftp {

using foundation::httpproxy::Proxy;
using foundation::httpproxy::ProxyList;
using foundation::httpproxy::ProxySelector;

namespace {

constexpr std::uint16_t usual_port = 1080; // libcurl's, so that FTP and SFTP go the same way

std::shared_ptr<ProxySelector> find_selector()
{
    auto context = foundation::services::bundle_context();
    const auto found = context.GetServiceReferences<ProxySelector>(cppmicroservices::LDAPFilter{}.ToString());
    return found.empty() ? nullptr : context.GetService(found.front());
}

proxy_address address_of(const Proxy& proxy)
{
    proxy_address address;
    address.host = proxy.getHost();
    if (const auto end = address.host.find("://"); end != std::string::npos) {
        const std::string scheme = address.host.substr(0, end);
        address.host.erase(0, end + 3);
        if (scheme == "socks5") {
            address.kind = proxy_address::protocol::socks5;
        } else if (scheme == "socks5h") {
            address.kind = proxy_address::protocol::socks5h;
        } else if (scheme != "http") {
            throw InvalidOption(scheme + "://" + address.host,
                                "SFTP goes through HTTP and SOCKS5 proxies, not through one of this kind");
        }
    }
    if (address.host.starts_with('[') && address.host.ends_with(']')) {
        address.host = address.host.substr(1, address.host.size() - 2);
    }
    address.port = proxy.getPort() == 0 ? usual_port : proxy.getPort();
    address.has_credentials = proxy.hasCredentials();
    if (address.has_credentials) {
        address.user = proxy.getCredentials().user_name;
        address.password = proxy.getCredentials().password;
        mask_secret(address.password);
    }
    return address;
}

} // namespace

std::optional<proxy_address> select_proxy()
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

} // namespace qrftp::sftp

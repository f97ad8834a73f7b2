#include "service.hpp"
#include "trace.hpp"

#include <foundation/httpproxy/ProxySelector.hpp>
#include <zorbel/io/ftp/core/connect.hpp>
#include <zorbel/io/ftp/core/set_option.hpp>

namespace zorbel::io::ftp::core {

using foundation::httpproxy::ProxyList;
using foundation::httpproxy::ProxySelector;

namespace {

void setCurlProxySettings(curl_ptr& connection, const ProxyList& proxies)
{
    const scope_trace trace;
    const auto& proxy = proxies.front();
    set_option(connection, CURLOPT_PROXY, proxy.getHost().c_str());
    if (proxy.getPort() != 0) {
        set_option(connection, CURLOPT_PROXYPORT, proxy.getPort());
    }
    if (proxy.hasCredentials()) {
        const auto& credentials = proxy.getCredentials();
        set_option(connection, CURLOPT_PROXYUSERNAME, credentials.user_name.c_str());
        set_option(connection, CURLOPT_PROXYPASSWORD, credentials.password.c_str());
    }
}

} // namespace

void configure_proxy(curl_ptr& connection)
{
    const scope_trace trace;
    const auto selector = find_service<ProxySelector>();
    if (selector == nullptr) {
        return;
    }
    // The selector is asked for schemes alone: one proxy serves all FTP and SFTP hosts.
    const ProxyList http = selector->select("http://");
    const ProxyList https = selector->select("https://");
    const ProxyList& chosen = http.empty() ? https : http;
    if (!chosen.empty()) {
        set_option(connection, CURLOPT_PROXY, chosen.front().getHost().c_str());
        setCurlProxySettings(connection, chosen);
    }
    set_option(connection, CURLOPT_HTTPPROXYTUNNEL, 1L);
    set_option(connection, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
}

} // namespace zorbel::io::ftp::core

#pragma once

#include <qrftp/options.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qrftp {

/// How to reach a proxy.
struct proxy_address {
    enum class protocol {
        http,  ///< HTTP CONNECT (RFC 9110, 9.3.6)
        https, ///< the same, over TLS
        socks4,
        socks4a,
        socks5,  ///< SOCKS5 (RFC 1928); names are looked up here
        socks5h, ///< SOCKS5; names are looked up by the proxy
    };
    protocol kind = protocol::http;
    std::string host{};     ///< as in URLs: an address of IPv6 in brackets
    std::uint16_t port = 0; ///< 0 where none is given
    std::string user{};     ///< with `password`, where `has_credentials`
    std::string password{};
    bool has_credentials = false;

    /// "http://host", without port and credentials.
    [[nodiscard]] std::string url() const;
};

/// The proxy of `options`: that of its URL, else that of the host program's proxy selector; none where none is
/// wanted. FTP and SFTP go through the same one. Throws `InvalidOption` for a text that is no URL of a proxy,
/// and where a proxy is wanted and none is named. Its password is masked in traces.
std::optional<proxy_address> select_proxy(const session_options& options);

} // namespace qrftp

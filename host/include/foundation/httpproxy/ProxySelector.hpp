#pragma once

#include <zorbelhost_export.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace foundation::httpproxy {

/// What a proxy wants to know of its user.
struct Credentials {
    /// As the user has it, not percent-encoded.
    std::string user_name;
    /// As the user has it, not percent-encoded.
    std::string password;
};

/// One proxy. The host text is what libcurl takes as a proxy: a name or an address, with a scheme in front only
/// where the proxy is not a plain HTTP one. Port 0 means that none was named.
class Proxy {
public:
    Proxy(std::string host, std::uint16_t port, std::optional<Credentials> credentials = std::nullopt)
        : host_(std::move(host)), port_(port), credentials_(std::move(credentials))
    {
    }

    /// The host text.
    const std::string& getHost() const { return host_; }
    /// The port, 0 when none was named.
    std::uint16_t getPort() const { return port_; }
    /// Whether the proxy wants to know its user.
    bool hasCredentials() const { return credentials_.has_value(); }

    /// User name and password. Throws `std::bad_optional_access` when there are none.
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): value() checks
    const Credentials& getCredentials() const { return credentials_.value(); }

private:
    std::string host_;
    std::uint16_t port_;
    std::optional<Credentials> credentials_;
};

/// Proxies, best first.
using ProxyList = std::vector<Proxy>;

/// A service: the user's proxy settings.
class ZORBELHOST_EXPORT ProxySelector {
public:
    virtual ~ProxySelector();

    /// The proxies through which `url` is to be reached, best first; an empty list means directly. A bare
    /// scheme ("http://") asks for the proxy of that scheme whatever the host.
    virtual ProxyList select(const std::string& url) = 0;

protected:
    ProxySelector() = default;
    ProxySelector(const ProxySelector&) = default;
    ProxySelector& operator=(const ProxySelector&) = default;
};

} // namespace foundation::httpproxy

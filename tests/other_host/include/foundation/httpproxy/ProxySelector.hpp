#pragma once

#include <deque>
#include <stdexcept>
#include <string>

namespace foundation::httpproxy {

struct Proxy {
    struct Credentials {
        std::string user_name, password;
    };
    std::string getHost() const { return {}; }
    int getPort() const { return 0; }
    bool hasCredentials() const { return false; }
    Credentials getCredentials() const { return {}; }
};

using ProxyList = std::deque<Proxy>;

/// Nobody may ask for proxies here.
struct ProxySelector {
    [[noreturn]] ProxyList select(const std::string& url) { throw std::runtime_error("no proxies for " + url); }
};

} // namespace foundation::httpproxy

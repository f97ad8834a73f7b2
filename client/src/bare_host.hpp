#pragma once

#include <string>

namespace qrftp {

/// A host as URLs name it, without the brackets around an address of IPv6.
inline std::string bare_host(const std::string& host)
{
    return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}

} // namespace qrftp

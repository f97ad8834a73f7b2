#pragma once

#include <foundation/httpproxy/ProxySelector.hpp>

#include <memory>

namespace foundation::httpproxy {

/// Reads `http_proxy`, `https_proxy`, `all_proxy` and `no_proxy` anew at every question.
std::shared_ptr<ProxySelector> make_environment_proxy_selector();

} // namespace foundation::httpproxy

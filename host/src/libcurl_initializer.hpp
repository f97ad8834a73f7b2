#pragma once

#include <foundation/httpclient_core/libcurlinitializer/LibCurlInitializer.hpp>

#include <memory>

namespace foundation::httpclient_core::libcurlinitializer {

/// Initialises libcurl; null when libcurl refuses.
std::shared_ptr<LibCurlInitializer> make_libcurl_initializer();

} // namespace foundation::httpclient_core::libcurlinitializer

#pragma once

namespace foundation::httpclient_core::libcurlinitializer {

/// This program initialises libcurl by itself: the service only says so.
struct LibCurlInitializer {};

} // namespace foundation::httpclient_core::libcurlinitializer

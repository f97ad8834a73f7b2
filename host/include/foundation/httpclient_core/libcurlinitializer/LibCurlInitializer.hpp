#pragma once

#include <zorbelhost_export.hpp>

namespace foundation::httpclient_core::libcurlinitializer {

/// A service: while one object of it lives, libcurl is initialised for the process. Whoever uses libcurl holds
/// a shared reference; when the last holder lets go, libcurl is cleaned up.
class ZORBELHOST_EXPORT LibCurlInitializer {
public:
    virtual ~LibCurlInitializer();

protected:
    LibCurlInitializer() = default;
    LibCurlInitializer(const LibCurlInitializer&) = default;
    LibCurlInitializer& operator=(const LibCurlInitializer&) = default;
};

} // namespace foundation::httpclient_core::libcurlinitializer

#pragma once

#include <cppmicroservices/BundleContext.h>
#include <zorbelhost_export.hpp>

#include <chrono>
#include <memory>

namespace cppmicroservices {

class FrameworkEvent;

/// What services are registered in. Copies stand for the same framework; when the last one goes it stops.
class ZORBELHOST_EXPORT Framework {
public:
    /// Makes a new context valid. Does nothing when the framework is active.
    void Start();

    /// Takes back every service and makes the context invalid. It can be started again.
    void Stop();

    /// Stopping has already ended when `Stop` returns, so this never waits.
    FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);

    /// Invalid unless the framework is active.
    BundleContext GetBundleContext() const;

private:
    friend class FrameworkFactory;
    struct State;
    Framework();

    std::shared_ptr<State> state_;
};

} // namespace cppmicroservices

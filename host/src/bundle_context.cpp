#include "environment_proxy_selector.hpp"
#include "libcurl_initializer.hpp"

#include <foundation/services/bundle_context.hpp>

#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include <chrono>
#include <mutex>
#include <utility>

namespace foundation::services {

namespace {

class Host {
public:
    Host() : framework_(cppmicroservices::FrameworkFactory().NewFramework())
    {
        framework_.Start();
        context_ = framework_.GetBundleContext();
        if (auto initializer = httpclient_core::libcurlinitializer::make_libcurl_initializer()) {
            (void)context_.RegisterService<httpclient_core::libcurlinitializer::LibCurlInitializer>(
                initializer);
        }
        (void)context_.RegisterService<httpproxy::ProxySelector>(httpproxy::make_environment_proxy_selector());
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host()
    {
        try {
            framework_.Stop();
            framework_.WaitForStop(std::chrono::milliseconds::zero());
        } catch (...) { // NOLINT(bugprone-empty-catch): the process ends, and the services with it
        }
    }

    cppmicroservices::BundleContext context()
    {
        const std::lock_guard lock(mutex_);
        return context_;
    }

    cppmicroservices::BundleContext exchange(cppmicroservices::BundleContext context)
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(context_, std::move(context));
    }

private:
    std::mutex mutex_;
    cppmicroservices::Framework framework_;
    cppmicroservices::BundleContext context_;
};

Host& host()
{
    static Host only;
    return only;
}

} // namespace

cppmicroservices::BundleContext bundle_context()
{
    return host().context();
}

cppmicroservices::BundleContext exchange_bundle_context(cppmicroservices::BundleContext context)
{
    return host().exchange(std::move(context));
}

} // namespace foundation::services

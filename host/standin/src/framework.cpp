#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {

namespace detail {

struct Service {
    std::type_index interface;
    std::weak_ptr<Registry> registry;
    std::shared_ptr<void> object;
};

struct Registry {
    bool holds(const std::shared_ptr<Service>& service) const
    {
        return std::find(services.begin(), services.end(), service) != services.end();
    }

    std::mutex mutex;
    std::vector<std::shared_ptr<Service>> services;
};

namespace {

/// The object of `service` while it is registered, else null.
std::shared_ptr<void> object_of(const std::shared_ptr<Service>& service)
{
    const auto registry = service ? service->registry.lock() : nullptr;
    if (!registry) {
        return nullptr;
    }
    const std::lock_guard lock(registry->mutex);
    return registry->holds(service) ? service->object : nullptr;
}

} // namespace

} // namespace detail

ServiceReferenceBase::operator bool() const
{
    return detail::object_of(service_.lock()) != nullptr;
}

bool ServiceReferenceBase::operator==(const ServiceReferenceBase& other) const
{
    return !service_.owner_before(other.service_) && !other.service_.owner_before(service_);
}

void ServiceRegistrationBase::Unregister()
{
    const auto registry = service_ ? service_->registry.lock() : nullptr;
    std::shared_ptr<void> object; // goes after the lock: its destructor may look for services
    if (registry) {
        const std::lock_guard lock(registry->mutex);
        if (std::erase(registry->services, service_) > 0) {
            object = std::move(service_->object);
        }
    }
    if (!object) {
        throw std::logic_error("there is no registered service to take back");
    }
}

BundleContext::operator bool() const
{
    return !registry_.expired();
}

std::shared_ptr<detail::Registry> BundleContext::valid() const
{
    auto registry = registry_.lock();
    if (!registry) {
        throw std::runtime_error("the bundle context belongs to no active framework");
    }
    return registry;
}

std::shared_ptr<detail::Service> BundleContext::add(std::type_index interface, std::shared_ptr<void> object)
{
    const auto registry = valid();
    if (!object) {
        throw std::invalid_argument("a null pointer cannot be a service");
    }
    auto service = std::make_shared<detail::Service>(detail::Service{interface, registry, std::move(object)});
    const std::lock_guard lock(registry->mutex);
    registry->services.push_back(service);
    return service;
}

std::vector<ServiceReferenceBase> BundleContext::find(std::type_index interface,
                                                      const std::string& filter) const
{
    const auto registry = valid();
    if (!filter.empty()) {
        throw std::invalid_argument("services can only be looked up with the empty filter");
    }
    std::vector<ServiceReferenceBase> result;
    const std::lock_guard lock(registry->mutex);
    for (const auto& service : registry->services) {
        if (service->interface == interface) {
            result.emplace_back(service);
        }
    }
    return result;
}

std::shared_ptr<void> BundleContext::get(const ServiceReferenceBase& reference) const
{
    auto object = detail::object_of(reference.service_.lock());
    if (!object) {
        throw std::invalid_argument("the reference stands for no registered service");
    }
    const auto registry = valid();
    return object;
}

struct Framework::State {
    std::mutex mutex;
    std::shared_ptr<detail::Registry> registry;
};

Framework::Framework() : state_(std::make_shared<State>())
{
}

void Framework::Start()
{
    const std::lock_guard lock(state_->mutex);
    if (!state_->registry) {
        state_->registry = std::make_shared<detail::Registry>();
    }
}

void Framework::Stop()
{
    std::shared_ptr<detail::Registry> registry; // goes after the lock, and the services with it
    const std::lock_guard lock(state_->mutex);
    registry = std::move(state_->registry);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): a member in CppMicroServices
FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& /*timeout*/)
{
    return {};
}

BundleContext Framework::GetBundleContext() const
{
    const std::lock_guard lock(state_->mutex);
    return BundleContext(state_->registry);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): a member in CppMicroServices
Framework FrameworkFactory::NewFramework()
{
    return {};
}

} // namespace cppmicroservices

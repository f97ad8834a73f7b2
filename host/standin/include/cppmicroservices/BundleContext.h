#pragma once

#include <cppmicroservices/ServiceReference.h>
#include <cppmicroservices/ServiceRegistration.h>
#include <zorbelhost_export.hpp>

#include <memory>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

namespace cppmicroservices {

namespace detail {
struct Registry;
}

/// A framework as its services see it. Default-constructed, and once the framework has stopped or gone, it is
/// invalid: every call throws `std::runtime_error`. Safe to use from several threads.
class ZORBELHOST_EXPORT BundleContext {
public:
    BundleContext() = default;
    explicit BundleContext(std::weak_ptr<detail::Registry> registry) : registry_(std::move(registry)) {}

    /// Whether the framework is active.
    explicit operator bool() const;

    /// Registers `service` under `Interface`. Throws `std::invalid_argument` for a null pointer.
    template <class Interface, class Service>
    ServiceRegistration<Interface> RegisterService(const std::shared_ptr<Service>& service)
    {
        const std::shared_ptr<Interface> object = service;
        return ServiceRegistration<Interface>(add(typeid(Interface), object));
    }

    /// The services of `Interface` that pass `filter`, those registered earlier first. Only the empty filter is
    /// known; any other throws `std::invalid_argument`.
    template <class Interface>
    std::vector<ServiceReference<Interface>> GetServiceReferences(const std::string& filter = {})
    {
        std::vector<ServiceReference<Interface>> result;
        for (const ServiceReferenceBase& reference : find(typeid(Interface), filter)) {
            result.emplace_back(reference);
        }
        return result;
    }

    /// The service. Throws `std::invalid_argument` when it is not registered any more.
    template <class Interface>
    std::shared_ptr<Interface> GetService(const ServiceReference<Interface>& reference)
    {
        return std::static_pointer_cast<Interface>(get(reference));
    }

private:
    std::shared_ptr<detail::Registry> valid() const;
    std::shared_ptr<detail::Service> add(std::type_index interface, std::shared_ptr<void> object);
    std::vector<ServiceReferenceBase> find(std::type_index interface, const std::string& filter) const;
    std::shared_ptr<void> get(const ServiceReferenceBase& reference) const;

    std::weak_ptr<detail::Registry> registry_;
};

} // namespace cppmicroservices

#pragma once

#include <zorbelhost_export.hpp>

#include <memory>
#include <utility>

namespace cppmicroservices {

namespace detail {
struct Service;
}

/// Which service is meant, whatever its interface. Does not keep the service alive.
class ZORBELHOST_EXPORT ServiceReferenceBase {
public:
    ServiceReferenceBase() = default;
    explicit ServiceReferenceBase(std::weak_ptr<detail::Service> service) : service_(std::move(service)) {}

    /// Whether the service is still registered.
    explicit operator bool() const;
    bool operator==(const ServiceReferenceBase& other) const;

private:
    friend class BundleContext;
    std::weak_ptr<detail::Service> service_;
};

/// Which service of interface `Interface` is meant.
template <class Interface>
class ServiceReference : public ServiceReferenceBase {
public:
    ServiceReference() = default;
    explicit ServiceReference(const ServiceReferenceBase& base) : ServiceReferenceBase(base) {}
};

} // namespace cppmicroservices

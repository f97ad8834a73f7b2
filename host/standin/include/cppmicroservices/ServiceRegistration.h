#pragma once

#include <cppmicroservices/ServiceReference.h>

namespace cppmicroservices {

/// The right to take a service back. Letting go of it leaves the service registered.
class ZORBELHOST_EXPORT ServiceRegistrationBase {
public:
    ServiceRegistrationBase() = default;
    explicit ServiceRegistrationBase(std::shared_ptr<detail::Service> service) : service_(std::move(service)) {}

    /// Whether this stands for a registration, be it taken back or not.
    explicit operator bool() const { return service_ != nullptr; }

    /// Takes the service back: it is found no more, whoever holds it keeps it. Throws `std::logic_error` when
    /// that was done before or nothing was registered.
    void Unregister();

private:
    std::shared_ptr<detail::Service> service_;
};

template <class Interface>
class ServiceRegistration : public ServiceRegistrationBase {
public:
    using ServiceRegistrationBase::ServiceRegistrationBase;
};

} // namespace cppmicroservices

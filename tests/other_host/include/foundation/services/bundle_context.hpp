#pragma once

#include <cppmicroservices/ServiceReference.h>
#include <other_host.hpp>

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

namespace foundation::services {

OTHER_HOST std::shared_ptr<void>& service(const std::type_info& interface);

/// One service of each interface, or none.
struct context {
    template <class Service>
    std::vector<cppmicroservices::ServiceReference<Service>> GetServiceReferences(const std::string& /*filter*/)
    {
        if (service(typeid(Service)) == nullptr) {
            return {};
        }
        return {{}};
    }

    template <class Service>
    std::shared_ptr<Service> GetService(const cppmicroservices::ServiceReference<Service>& /*reference*/)
    {
        return std::static_pointer_cast<Service>(service(typeid(Service)));
    }
};

inline context bundle_context()
{
    return {};
}

} // namespace foundation::services

#pragma once

#include <foundation/services/bundle_context.hpp>

#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceReference.h>

#include <memory>

namespace zorbel::io::ftp::core {

/// The host's first service of the interface `Service`, or null. Throws what the registry throws.
template <class Service>
std::shared_ptr<Service> find_service()
{
    auto context = foundation::services::bundle_context();
    const auto references = context.GetServiceReferences<Service>(cppmicroservices::LDAPFilter{}.ToString());
    return references.empty() ? nullptr : context.GetService(references.front());
}

} // namespace zorbel::io::ftp::core

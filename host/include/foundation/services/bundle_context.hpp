#pragma once

#include <zorbelhost_export.hpp>

#include <cppmicroservices/BundleContext.h>

namespace foundation::services {

/// The context in which the host's services are registered. The first call starts a framework and registers
/// the stand-alone host's services: the libcurl initialiser (left out when libcurl cannot be initialised) and
/// the proxy selector. Safe to call from several threads.
ZORBELHOST_EXPORT cppmicroservices::BundleContext bundle_context();

/// Puts `context` in the place of the host's and returns the one that was there. A default-constructed context
/// is invalid: looking up a service in it throws `std::runtime_error`. For programs and tests that bring
/// services of their own.
ZORBELHOST_EXPORT cppmicroservices::BundleContext
exchange_bundle_context(cppmicroservices::BundleContext context);

} // namespace foundation::services

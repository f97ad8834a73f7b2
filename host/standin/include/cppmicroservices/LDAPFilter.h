#pragma once

#include <string>

namespace cppmicroservices {

/// A filter on the properties of services. Only the empty one, which every service passes.
class LDAPFilter {
public:
    /// The filter as text: empty.
    std::string ToString() const { return {}; }
};

} // namespace cppmicroservices

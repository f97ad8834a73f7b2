#pragma once

#include <string>

namespace cppmicroservices {
struct LDAPFilter {
    std::string ToString() const { return {}; }
};
} // namespace cppmicroservices

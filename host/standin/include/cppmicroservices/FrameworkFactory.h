#pragma once

#include <zorbelhost_export.hpp>

namespace cppmicroservices {

class Framework;

class ZORBELHOST_EXPORT FrameworkFactory {
public:
    /// A framework of its own, not started.
    Framework NewFramework();
};

} // namespace cppmicroservices

#pragma once

#include <cppmicroservices/Framework.h>

namespace cppmicroservices {

class ZORBELHOST_EXPORT FrameworkFactory {
public:
    /// A framework of its own, not started.
    Framework NewFramework();
};

} // namespace cppmicroservices

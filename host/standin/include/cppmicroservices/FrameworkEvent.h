#pragma once

namespace cppmicroservices {

/// Why waiting for a framework ended.
class FrameworkEvent {
public:
    enum Type : unsigned { FRAMEWORK_STOPPED = 0x40 };

    Type GetType() const { return FRAMEWORK_STOPPED; }
};

} // namespace cppmicroservices

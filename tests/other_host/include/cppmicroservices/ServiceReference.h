#pragma once

namespace cppmicroservices {
template <class Service>
struct ServiceReference {
};
} // namespace cppmicroservices

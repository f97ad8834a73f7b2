#pragma once

#include <qrftp/entry.hpp>
#include <qrftp/glob.hpp>
#include <qrftp/server_info.hpp>
#include <qrftp/session.hpp>

#include <pybind11/pybind11.h>

namespace qrftp::python {

namespace py = pybind11;

// Plain tuples, of which the Python side of the package makes its data classes.

[[nodiscard]] py::tuple to_python(const entry& what);
[[nodiscard]] py::tuple to_python(const listing& folder);
[[nodiscard]] py::list to_python(const std::vector<remote_entry>& found);
[[nodiscard]] py::tuple to_python(const server_info& server);
/// Seconds since 1970, and whether they are exact; None where there is no time.
[[nodiscard]] py::object to_python(const std::optional<timestamp>& time);

/// None, or the value.
template <class T>
[[nodiscard]] py::object or_none(const std::optional<T>& value)
{
    return value ? py::object(py::cast(*value)) : py::none();
}

} // namespace qrftp::python

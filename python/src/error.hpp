#pragma once

#include <pybind11/pybind11.h>

#include <exception>

namespace qrftp::python {

namespace py = pybind11;

/// From now on, errors of the client are raised as the class of `qrftp.error` that has their name.
void register_errors();

/// What `failure` holds as an instance of its Python class.
[[nodiscard]] py::object to_python(const std::exception_ptr& failure);

} // namespace qrftp::python

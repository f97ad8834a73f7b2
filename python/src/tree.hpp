#pragma once

#include <qrftp/tree.hpp>

#include <pybind11/pybind11.h>

namespace qrftp::python {

namespace py = pybind11;

[[nodiscard]] py::tuple to_python(const tree_action& step);
[[nodiscard]] py::tuple to_python(const tree_progress& now);
[[nodiscard]] py::tuple to_python(const tree_result& result);

} // namespace qrftp::python

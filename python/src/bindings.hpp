#pragma once

#include "native_session.hpp"

#include <pybind11/pybind11.h>

#include <memory>

namespace qrftp::python {

using session_class = py::class_<native_session, std::shared_ptr<native_session>>;

void bind_operations(session_class& session);
void bind_transfers(session_class& session);
void bind_trees(session_class& session);
void bind_files(py::module_& module, session_class& session);

} // namespace qrftp::python

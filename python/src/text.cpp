#include "text.hpp"

namespace qrftp::python {

namespace {

py::object checked(PyObject* made)
{
    if (made == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(made);
}

} // namespace

py::str to_text(std::string_view bytes)
{
    return checked(
        PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogateescape"));
}

std::string to_bytes(py::handle text)
{
    py::object path = checked(PyOS_FSPath(text.ptr()));
    if (PyUnicode_Check(path.ptr())) {
        path = checked(PyUnicode_AsEncodedString(path.ptr(), "utf-8", "surrogateescape"));
    }
    return py::bytes(path);
}

} // namespace qrftp::python

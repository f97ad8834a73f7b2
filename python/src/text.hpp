#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>
#include <utility>

namespace qrftp::python {

namespace py = pybind11;

/// A remote name or path. In Python: str, where bytes that are not UTF-8 are surrogate escapes; taken from str,
/// bytes and os.PathLike.
struct remote_name {
    std::string bytes{};
};

/// `bytes` as a str, in which bytes that are not UTF-8 are surrogate escapes.
[[nodiscard]] py::str to_text(std::string_view bytes);

/// The bytes of str, bytes or os.PathLike. Throws `py::error_already_set` for another type.
[[nodiscard]] std::string to_bytes(py::handle text);

} // namespace qrftp::python

namespace pybind11::detail {

template <>
struct type_caster<qrftp::python::remote_name> {
    PYBIND11_TYPE_CASTER(qrftp::python::remote_name, const_name("str | bytes | os.PathLike"));

    bool load(handle source, bool /*convert*/)
    {
        value.bytes = qrftp::python::to_bytes(source);
        return true;
    }

    static handle cast(const qrftp::python::remote_name& path, return_value_policy /*policy*/,
                       handle /*parent*/)
    {
        return qrftp::python::to_text(path.bytes).release();
    }
};

} // namespace pybind11::detail

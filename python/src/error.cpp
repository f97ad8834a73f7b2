#include "error.hpp"

#include "text.hpp"

#include <qrftp/error.hpp>

#include <utility>

namespace qrftp::python {

namespace {

py::object make(const error& failure)
{
    py::object number = py::none();
    if (const auto* local = dynamic_cast<const LocalFileError*>(&failure)) {
        number = py::int_(local->code().value());
    }
    return py::module_::import("qrftp.error")
        .attr("make")(to_text(failure.name()), to_text(failure.what()), to_text(failure.path()),
                      failure.reply_code(), to_text(failure.server_message()), number);
}

} // namespace

py::object to_python(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const error& known) {
        return make(known);
    } catch (const std::exception& other) {
        return py::reinterpret_borrow<py::object>(PyExc_RuntimeError)(other.what());
    }
}

void register_errors()
{
    py::register_exception_translator([](std::exception_ptr failure) {
        try {
            std::rethrow_exception(std::move(failure));
        } catch (const error& known) {
            const py::object instance = make(known);
            PyErr_SetObject(py::type::handle_of(instance).ptr(), instance.ptr());
        }
    });
}

} // namespace qrftp::python

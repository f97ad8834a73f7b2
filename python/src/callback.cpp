#include "callback.hpp"

namespace qrftp::python {

namespace {

void destroy(py::object* function)
{
    if (Py_IsInitialized() == 0) {
        return; // the interpreter, and with it the callable, is gone
    }
    const py::gil_scoped_acquire held;
    delete function;
}

} // namespace

void callback_failure::keep_current()
{
    if (first_) {
        return;
    }
    try {
        throw;
    } catch (const py::builtin_exception& wrong_type) { // an answer that cannot be converted
        wrong_type.set_error();
        first_ = std::make_exception_ptr(py::error_already_set());
    } catch (...) {
        first_ = std::current_exception();
    }
}

void callback_failure::rethrow() const
{
    if (first_) {
        std::rethrow_exception(first_);
    }
}

callback::callback(py::object function, std::shared_ptr<callback_failure> failure)
    : function_(new py::object(std::move(function)), destroy), failure_(std::move(failure))
{
}

bool goes_on(const py::object& answer)
{
    return answer.is_none() || answer.cast<bool>();
}

} // namespace qrftp::python

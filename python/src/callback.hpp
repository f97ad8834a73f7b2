#pragma once

#include <pybind11/pybind11.h>

#include <exception>
#include <memory>
#include <utility>

namespace qrftp::python {

namespace py = pybind11;

/// Where the exception of a callback waits until the call that it ends has returned. Guarded by the GIL.
class callback_failure {
public:
    /// Keeps the exception that is being handled, unless there is one already.
    void keep_current();
    void clear() { first_ = nullptr; }
    void rethrow() const;

private:
    std::exception_ptr first_;
};

/// A Python callable that C++ may copy, call and destroy on any thread; it takes the GIL for that.
class callback {
public:
    callback(py::object function, std::shared_ptr<callback_failure> failure);

    /// What `use`, which is given the callable and holds the GIL, returns; `when_raised` where it raised.
    template <class Result, class Use>
    Result operator()(Result when_raised, const Use& use) const
    {
        const py::gil_scoped_acquire held;
        try {
            return use(*function_);
        } catch (...) {
            failure_->keep_current();
            return when_raised;
        }
    }

private:
    std::shared_ptr<py::object> function_;
    std::shared_ptr<callback_failure> failure_;
};

/// What a callback for progress answered: nothing means that the work goes on.
[[nodiscard]] bool goes_on(const py::object& answer);

} // namespace qrftp::python

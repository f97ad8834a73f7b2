#include "interruptible.hpp"

#include <pybind11/pybind11.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

namespace qrftp::python {

namespace py = pybind11;

namespace {

/// How soon a signal is noticed.
constexpr auto poll_interval = std::chrono::milliseconds(50);

/// The work, and whether it has ended.
class worker {
public:
    explicit worker(const std::function<void()>& work) : thread_([this, &work] { run(work); }) {}

    bool wait()
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, poll_interval, [this] { return ended_; });
    }

    void join()
    {
        thread_.join();
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

private:
    void run(const std::function<void()>& work) noexcept
    {
        std::exception_ptr failure;
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        failure_ = std::move(failure);
        ended_ = true;
        changed_.notify_one();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool ended_ = false;
    std::exception_ptr failure_;
    std::jthread thread_; // the last one: it uses the others
};

std::exception_ptr handle_signals()
{
    const py::gil_scoped_acquire held;
    return PyErr_CheckSignals() == 0 ? nullptr : std::make_exception_ptr(py::error_already_set());
}

} // namespace

void run_interruptibly(std::stop_source& stop, const std::function<void()>& work)
{
    const py::gil_scoped_release released;
    std::exception_ptr signal;
    worker working(work);
    while (!working.wait()) {
        if (auto raised = handle_signals(); raised && !signal) {
            signal = std::move(raised);
            stop.request_stop();
        }
    }
    try {
        working.join();
    } catch (...) {
        if (!signal) {
            throw;
        }
    }
    if (signal) {
        std::rethrow_exception(signal);
    }
}

} // namespace qrftp::python

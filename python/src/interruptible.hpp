#pragma once

#include <functional>
#include <stop_token>

namespace qrftp::python {

/// Runs `work` on a thread of its own. The calling thread, which holds the GIL, lets go of it meanwhile and
/// runs Python's signal handlers as signals arrive. Where one of them raises, requests the stop, waits until
/// `work` has ended and throws the exception as `py::error_already_set`; otherwise throws what `work` throws.
void run_interruptibly(std::stop_source& stop, const std::function<void()>& work);

} // namespace qrftp::python

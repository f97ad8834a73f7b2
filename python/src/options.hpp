#pragma once

#include "callback.hpp"

#include <qrftp/options.hpp>
#include <qrftp/transfer.hpp>
#include <qrftp/tree.hpp>

#include <memory>

namespace qrftp::python {

/// The options of C++ from the keywords of Python, which are in `given` by name; None and what is missing leave
/// the default. What callbacks raise goes to `failure`. Throws `InvalidOption` and `py::cast_error`.
[[nodiscard]] session_options to_session_options(const py::dict& given,
                                                 const std::shared_ptr<callback_failure>& failure);
[[nodiscard]] transfer_options to_transfer_options(const py::dict& given,
                                                   const std::shared_ptr<callback_failure>& failure);
[[nodiscard]] sync_options to_sync_options(const py::dict& given,
                                           const std::shared_ptr<callback_failure>& failure);

} // namespace qrftp::python

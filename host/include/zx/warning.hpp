#pragma once

#include <foundation/core/except/Message.hpp>
#include <zorbelhost_export.hpp>

#include <functional>
#include <string>

using zxWarningHandler = std::function<void(const foundation::core::except::Message&)>;

/// Issues the warning `key` of `component`, without arguments, to the program's handler. Safe to call from
/// several threads.
ZORBELHOST_EXPORT void zxWarningMsgId(const std::string& component, const std::string& key);

/// Sets the handler of warnings and returns the earlier one. An empty handler brings back the one of the start,
/// which writes the warning's sentence as one line to standard error.
ZORBELHOST_EXPORT zxWarningHandler zxSetWarningHandler(zxWarningHandler handler);

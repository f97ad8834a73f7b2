#pragma once

#include <string>

namespace qrftp::cli {

/// The secret for `what`: from the environment variable `variable` when it is set; else asked for on the
/// terminal without echo; else, without a terminal, empty. The log masks it from then on.
std::string secret(const char* variable, const std::string& what);

} // namespace qrftp::cli

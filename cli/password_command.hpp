#pragma once

#include <string>

namespace qrftp::cli {

/// Runs `command` by /bin/sh and returns the first line that it prints. Throws `no_secret`, which names the
/// command, where it fails or prints nothing.
std::string run_password_command(const std::string& command);

} // namespace qrftp::cli

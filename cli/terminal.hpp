#pragma once

#include <optional>
#include <string>

namespace qrftp::cli {

/// A line that is typed at the terminal without echo, where there is a terminal: the one of the process, else
/// standard input. Empty without one, and when nothing was typed. Throws `error::Cancelled` for an interrupt.
std::optional<std::string> ask_secret(const std::string& question);

/// Whether the answer begins with "y"; empty without a terminal. Throws as above.
std::optional<bool> ask_yes_or_no(const std::string& question);

} // namespace qrftp::cli

#pragma once

#include <optional>
#include <string>

namespace qrftp::cli {

/// A line from a descriptor, without its end, byte by byte: what follows it belongs to somebody else. Nothing
/// at the end of input and when a signal has come.
std::optional<std::string> read_line(int descriptor);

/// Whether the process has a terminal, or standard input is one.
bool has_terminal();

/// Writes `text` to that terminal; nothing without one.
void show_at_terminal(const std::string& text);

/// A line that is typed at that terminal, where there is one; with `echo` it can be read while it is typed.
/// Throws `Cancelled` when a signal comes.
std::optional<std::string> ask(const std::string& question, bool echo);

/// A line that is typed without echo; nothing without a terminal, and when nothing was typed. Throws as `ask`.
std::optional<std::string> ask_secret(const std::string& question);

/// Whether the answer begins with "y"; nothing without a terminal. Throws as `ask`.
std::optional<bool> ask_yes_or_no(const std::string& question);

} // namespace qrftp::cli

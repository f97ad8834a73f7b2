#pragma once

namespace qrftp::cli {

/// SIGINT and SIGTERM: the first only sets a flag, so that what is under way can end in good order; a second
/// one ends the process. Writing to a pipe that nobody reads becomes an error of the writer's.
void install_interrupt_handlers();

/// Whether a signal has come since the start or the last `reset_interrupt`.
bool interrupted();

/// The signal that has come; 0 when none has.
int interrupting_signal();

void reset_interrupt();

} // namespace qrftp::cli

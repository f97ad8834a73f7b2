#pragma once

#include <chrono>
#include <stop_token>

namespace qrftp::cli {

/// SIGINT, SIGTERM and SIGHUP: the first one requests a stop, so that what is under way ends in good order; a
/// second one ends the process. SIGHUP stays ignored where it is (nohup). Writing to a pipe that nobody reads
/// becomes an error of the writer's. Call it once, before any other thread is started.
void install_interrupt_handlers();

/// Stops when a signal comes.
std::stop_token interrupt_token();

/// Whether a signal has come since the start or the last `reset_interrupt`.
bool interrupted();

/// The signal that has come; 0 when none has.
int interrupting_signal();

/// From now on there was no signal; `interrupt_token` is another one.
void reset_interrupt();

constexpr std::chrono::milliseconds forever{-1};

/// Waits until `descriptor` can be read, or, where it is negative, for `longest`. False when a signal has come.
bool wait_readable(int descriptor, std::chrono::milliseconds longest = forever);

} // namespace qrftp::cli

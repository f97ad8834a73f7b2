#pragma once

#include <qrftp/error.hpp>

#include <cstddef>
#include <exception>
#include <string>

namespace qrftp::cli {

/// What the process ends with.
enum exit_status : int {
    success = 0,
    other_failure = 1,
    usage = 2,
    no_connection = 3,
    no_login = 4,
    missing = 5,
    denied = 6,
    local_failure = 7,
    some_of_several = 8,
    unknown_server = 9,
    unsafe_removal = 10,
};

/// Whether `error` is of that class.
template <class Error>
bool is(const std::exception& error)
{
    return dynamic_cast<const Error*>(&error) != nullptr;
}

/// The status for an error of the client.
exit_status status_of(error_cause cause);

/// The status for an error; 128 and the signal's number when a signal has come.
int status_of(const std::exception& error);

/// The error in one line without control characters.
std::string sentence_of(const std::exception& error);

/// Whether failures are reported as JSON from now on.
void report_as_json(bool wanted) noexcept;

/// Writes the sentence, or the JSON object, to standard error; nothing for `some_failed`, which has been
/// reported, and where nobody reads the output any more. In a batch, `line` is the number of the line that
/// failed.
void report(const std::exception& error, std::size_t line = 0);

} // namespace qrftp::cli

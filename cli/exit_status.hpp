#pragma once

#include <exception>
#include <functional>
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
};

/// The status for an error; 128 and the signal's number when a signal has come.
int status_of(const std::exception& error);

/// The error in one line without control characters, its secrets as asterisks.
std::string sentence_of(const std::exception& error);

/// Writes "qrftp: " and the sentence to standard error; nothing for `some_failed`, which has been reported.
void report(const std::exception& error);

/// Several things of which some may fail.
class attempts {
public:
    /// Where `alone`, the first failure is thrown as it is.
    explicit attempts(bool alone) : alone_(alone) {}

    /// Carries one out and reports its failure. A failure that would meet the others as well, of the connection
    /// or of the login, and an interrupt are thrown.
    void attempt(const std::function<void()>& act);
    void add(const std::exception& error);

    /// Throws `some_failed` if any has failed.
    void finish() const;

private:
    bool alone_;
    bool failed_ = false;
};

} // namespace qrftp::cli

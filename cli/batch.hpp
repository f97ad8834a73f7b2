#pragma once

#include <exception>
#include <functional>

namespace qrftp::cli {

/// Several things of which some may fail.
class batch {
public:
    /// Where `alone`, the first failure is thrown as it is.
    explicit batch(bool alone) : alone_(alone) {}

    /// Carries one out and reports its failure. A failure that would meet the others as well, of the connection
    /// or of the login, and an interrupt are thrown.
    void attempt(const std::function<void()>& act);

    /// Reports a failure that was met elsewhere.
    void add(const std::exception& error);
    /// Counts a failure that has been reported.
    void add_reported() { failed_ = true; }

    /// Throws `some_failed` if any has failed.
    void finish() const;

private:
    bool alone_;
    bool failed_ = false;
};

} // namespace qrftp::cli

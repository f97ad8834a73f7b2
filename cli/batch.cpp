#include "batch.hpp"

#include "exit_status.hpp"
#include "interrupt.hpp"
#include "output.hpp"
#include "settings.hpp"

namespace qrftp::cli {

namespace {

/// Whether whatever comes next would fail for the same reason.
bool ends_everything(const std::exception& error)
{
    const int status = status_of(error);
    return interrupted() || dynamic_cast<const output_failed*>(&error) != nullptr || status == no_connection ||
           status == no_login || status == unknown_server;
}

} // namespace

void batch::attempt(const std::function<void()>& act)
try {
    act();
} catch (const some_failed&) {
    failed_ = true;
} catch (const std::exception& error) {
    if (alone_ || ends_everything(error)) {
        throw;
    }
    add(error);
}

void batch::add(const std::exception& error)
{
    report(error);
    failed_ = true;
}

void batch::finish() const
{
    if (failed_) {
        throw some_failed("Some of it failed.");
    }
}

} // namespace qrftp::cli

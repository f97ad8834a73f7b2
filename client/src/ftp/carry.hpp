#pragma once

#include "../protocol.hpp"

#include <exception>

namespace qrftp::ftp {

/// After these, further files of a batch would fail as well.
inline bool concerns_all_files(error_cause cause)
{
    return cause == error_cause::no_connection || cause == error_cause::proxy_refused ||
           cause == error_cause::no_encryption || cause == error_cause::certificate_refused ||
           cause == error_cause::login_refused || cause == error_cause::cancelled;
}

/// Runs `work` on each part of a batch, one after the other.
template <class File, class Work>
void carry(batch<File>& files, const Work& work)
{
    while (const auto part = files.next()) {
        try {
            work(*part);
        } catch (const error& failure) {
            files.failed(*part, std::current_exception());
            if (concerns_all_files(failure.cause())) {
                throw;
            }
            continue;
        } catch (...) {
            files.failed(*part, std::current_exception());
            continue;
        }
        files.finished(*part);
    }
}

} // namespace qrftp::ftp

#pragma once

#include <qrftp/error.hpp>
#include <qrftp/options.hpp>
#include <qrftp/transfer.hpp>

#include <chrono>
#include <exception>
#include <stop_token>
#include <string>

namespace qrftp {

/// Decides whether what a broken connection ended is taken up again, and waits before it is. One thread.
class retry_policy {
public:
    /// Once, at once, and only after a lost connection.
    retry_policy() = default;
    /// As often as the options of the transfer say. `stop` ends the waiting.
    retry_policy(const transfer_options& transfer, const session_options& session, std::stop_token stop);

    /// `advanced`: something new had arrived since the last time. Returns when it is time to go on, or at once
    /// where it is not to go on. Throws `Cancelled`.
    bool again(const std::exception_ptr& why, bool advanced);

private:
    [[nodiscard]] bool is_temporary(error_cause why, bool advanced) const;
    void wait(const std::string& subject) const;

    unsigned retries_ = 1;
    std::chrono::milliseconds delay_{};
    bool retries_stalls_ = false;
    std::stop_token stop_{};
    unsigned failures_ = 0; ///< in a row that brought nothing new
};

} // namespace qrftp

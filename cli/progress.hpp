#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <chrono>
#include <csignal>
#include <string>

namespace qrftp::cli {

/// A progress bar on standard error for the transfers of one connection: amount, rate and time left, once a
/// transfer has run for a second, at most ten times a second. Silent when standard error is no terminal.
/// Ends every request once `*interrupted`, where given, is not 0.
///
/// Reports through the handle's progress callback while it lives; the connection must outlive it.
class progress_bar {
public:
    progress_bar(zorbel::io::ftp::core::curl_ptr& connection, std::string title,
                 const volatile std::sig_atomic_t* interrupted = nullptr);
    ~progress_bar();
    progress_bar(const progress_bar&) = delete;
    progress_bar& operator=(const progress_bar&) = delete;

private:
    using clock = std::chrono::steady_clock;

    static int callback(void* self, curl_off_t download_total, curl_off_t downloaded, curl_off_t upload_total,
                        curl_off_t uploaded) noexcept;
    void draw(curl_off_t done, curl_off_t total);

    zorbel::io::ftp::core::curl_ptr& connection_;
    std::string title_;
    const volatile std::sig_atomic_t* interrupted_;
    bool terminal_;
    clock::time_point start_{}; ///< of the transfer, once it is under way
    clock::time_point last_drawn_{};
    bool drawn_ = false;
};

/// A count of bytes as people read it: "64.0 MiB".
std::string readable(double bytes);

} // namespace qrftp::cli

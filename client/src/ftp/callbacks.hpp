#pragma once

#include "engine.hpp"

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace qrftp {

/// One perform and what libcurl's callbacks need while it runs. No exception of theirs reaches libcurl: it is
/// kept in `thrown`, the request is ended, and it goes on afterwards.
class call {
public:
    call(const request& wanted, const options& how, CURL* handle);

    /// For CURLOPT_HEADERFUNCTION, _WRITEFUNCTION, _READFUNCTION, _SEEKFUNCTION and _XFERINFOFUNCTION, with the
    /// call as their data.
    static std::size_t take_header(char* data, std::size_t size, std::size_t count, void* user) noexcept;
    static std::size_t take_body(char* data, std::size_t size, std::size_t count, void* user) noexcept;
    static std::size_t give_body(char* buffer, std::size_t size, std::size_t count, void* user) noexcept;
    static int seek_body(void* user, curl_off_t offset, int origin) noexcept;
    static int report(void* user, curl_off_t total, curl_off_t got, curl_off_t to_send,
                      curl_off_t sent) noexcept;

    /// The last figures of a transfer are told whenever the last ones before them were.
    void report_end() const;

    const std::string& header() const { return header_; }
    const std::string& tls() const { return tls_; }
    /// Bytes of the body, in either direction.
    std::uint64_t moved() const { return moved_; }
    const std::exception_ptr& thrown() const { return thrown_; }

private:
    using microseconds = std::chrono::microseconds;
    using clock = std::chrono::steady_clock;

    template <class Work>
    bool guard(Work work) noexcept;
    void follow_data_connection(std::string_view line);
    void look_again() const;
    void keep_awake();
    void look_for_stall(std::uint64_t done);
    void count(std::uint64_t bytes);
    void hold_back();
    void report_progress(std::uint64_t done);
    void tell(std::uint64_t bytes) const;

    const request& wanted_;
    const options& how_;
    CURL* handle_;
    std::string header_;
    std::string tls_;
    std::uint64_t position_ = 0; ///< in the source
    std::uint64_t moved_ = 0;
    std::uint64_t total_ = 0; ///< of a download, as libcurl expects it
    std::exception_ptr thrown_;
    clock::time_point began_ = clock::now();
    clock::time_point reported_{};
    std::uint64_t heard_ = 0;   ///< bytes of any kind, as far as libcurl tells
    clock::duration silence_{}; ///< since that changed
    clock::time_point looked_at_ = began_;
    microseconds pause_{}; ///< between two looks at the control connection; 0 while libcurl looks by itself
};

} // namespace qrftp

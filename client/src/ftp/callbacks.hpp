#pragma once

#include "data_tls.hpp"
#include "request.hpp"

#include <qrftp/options.hpp>
#include <qrftp/url.hpp>

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace qrftp::ftp {

/// What libcurl calls while a request runs. No exception reaches libcurl: it is kept in `thrown`, the request
/// is ended, and the exception continues afterwards. Outlives the connection, which says goodbye to the server
/// at its end.
class transfer_callbacks {
public:
    transfer_callbacks(const url& server, std::stop_token stop, data_tls& data)
        : server_(server), stop_(std::move(stop)), data_(data)
    {
    }
    transfer_callbacks(const transfer_callbacks&) = delete;
    transfer_callbacks& operator=(const transfer_callbacks&) = delete;
    ~transfer_callbacks() = default;

    void set_up(const curl_ptr& handle);

    /// `request` stays until `end`.
    void begin(const request& request);
    void end();
    [[nodiscard]] bool is_busy() const { return request_ != nullptr; }

    [[nodiscard]] const std::vector<reply>& replies() const { return replies_.replies(); }
    /// "TLSv1.2 ECDHE-…" of the control connection, empty without TLS.
    [[nodiscard]] const std::string& encryption() const { return encryption_; }
    /// What the server told of the file before its body.
    [[nodiscard]] const file_facts& source() const { return source_; }
    /// Bytes of the body, in either direction.
    [[nodiscard]] std::uint64_t moved() const { return moved_; }
    [[nodiscard]] const std::exception_ptr& thrown() const { return thrown_; }
    /// libcurl was not let go on after a reply, and may leave further ones unread.
    [[nodiscard]] bool has_lost_reply() const { return lost_reply_; }

private:
    using microseconds = std::chrono::microseconds;

    static std::size_t on_reply(char* data, std::size_t size, std::size_t count, void* user) noexcept;
    static std::size_t on_body(char* data, std::size_t size, std::size_t count, void* user) noexcept;
    static std::size_t read_body(char* buffer, std::size_t size, std::size_t count, void* user) noexcept;
    static int seek_body(void* user, curl_off_t offset, int origin) noexcept;
    static int on_progress(void* user, curl_off_t total, curl_off_t received, curl_off_t to_send,
                           curl_off_t sent) noexcept;

    template <class Work>
    bool guard(Work work) noexcept;
    void take_reply(std::string_view line);
    void read_source();
    void follow_data_connection(std::string_view line);
    void look_again() const;
    void keep_awake();

    const url& server_;
    std::stop_token stop_;
    data_tls& data_;
    CURL* handle_ = nullptr;
    const request* request_ = nullptr; ///< the one under way
    reply_reader replies_;
    std::size_t replies_size_ = 0; ///< in bytes
    bool lost_reply_ = false;
    std::string encryption_;
    file_facts source_;
    std::uint64_t position_ = 0; ///< in the source
    std::uint64_t moved_ = 0;
    std::exception_ptr thrown_;
    microseconds pause_{}; ///< between two looks at the control connection; 0 while libcurl looks by itself
};

} // namespace qrftp::ftp

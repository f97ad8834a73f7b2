#pragma once

#include "callbacks.hpp"
#include "certificate_check.hpp"
#include "data_tls.hpp"
#include "login.hpp"
#include "request.hpp"
#include "sockets.hpp"

#include <qrftp/options.hpp>
#include <qrftp/server_info.hpp>
#include <qrftp/url.hpp>
#include <zorbel/io/ftp/core/request.hpp>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace qrftp::ftp {

/// One login: the core's connection, set up once, and every request over it.
///
/// A request that fails because the connection is lost is repeated once, over a new one, if it may be. Results
/// that say that the server refused are returned; whatever else ends a request is thrown: the errors of the
/// connection, of the login, of the limits, and what the callbacks of the request threw.
class connection {
public:
    /// Connects and logs in.
    connection(const url& server, const session_options& options);
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;
    ~connection() = default;

    request_result run(const request& request);

    [[nodiscard]] const session_options& options() const { return options_; }
    /// The server as people write it.
    [[nodiscard]] const std::string& server() const { return server_; }
    [[nodiscard]] server_info& info() { return info_; }
    [[nodiscard]] const server_info& info() const { return info_; }

private:
    using command_list = std::optional<zorbel::io::ftp::core::slist>;

    void log_in();
    request_result reach();
    void read_features(const reply& features);
    std::string url_of(const std::string& path);
    void set_commands(const request& request);
    void set_request(const request& request);
    request_result perform(const request& request);
    [[nodiscard]] curl_socket_t socket() const;
    [[nodiscard]] bool is_stale() const;
    void sever();
    static void check_names(const request& request);
    static bool may_repeat(const request& request, const request_result& result);

    url location_;
    session_options options_;
    std::string server_;
    server_info info_;
    // libcurl refers to what follows as long as it has the handle.
    certificate_check check_;
    login login_;
    sockets sockets_;
    data_tls data_tls_;
    transfer_callbacks callbacks_;
    std::array<char, CURL_ERROR_SIZE> message_{};
    command_list before_, between_, after_;
    curl_ptr handle_;
    bool logged_in_ = false;
};

} // namespace qrftp::ftp

#include "connection.hpp"

#include "../refusal.hpp"
#include "../remote_path.hpp"
#include "failure.hpp"
#include "trace_callback.hpp"

#include <zorbel/io/ftp/core/paths.hpp>

#include <fmt/format.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <stop_token>

namespace qrftp::ftp {

namespace core = zorbel::io::ftp::core;

namespace {

std::optional<core::slist> make_list(const std::vector<std::string>& commands)
{
    std::optional<core::slist> list;
    for (const std::string& command : commands) {
        list ? (void)list->append(command) : (void)list.emplace(command);
        if (list->get() == nullptr) {
            throw std::bad_alloc(); // A request without its commands would seem to have carried them out.
        }
    }
    return list;
}

/// libcurl does not judge the answers to commands with an asterisk: for a refused one it would close the
/// connection.
std::vector<std::string> unchecked(std::vector<std::string> commands)
{
    for (std::string& command : commands) {
        command.insert(0, 1, '*');
    }
    return commands;
}

/// What goes in between the type and RETR. libcurl's own request for the size takes "-1" for 1, and cuts the
/// file there; without it, it sends no REST either.
std::vector<std::string> commands_before_retrieval(const request& request)
{
    std::vector<std::string> commands;
    if (request.want_size) {
        commands.push_back("*SIZE " + request.path);
    }
    if (request.want_time) {
        commands.push_back("*MDTM " + request.path);
    }
    if (request.source == nullptr && request.range.begin > 0) {
        commands.push_back(fmt::format("REST {}", request.range.begin));
    }
    return commands;
}

curl_slist* get(const std::optional<core::slist>& list)
{
    return list ? list->get() : nullptr;
}

std::string trimmed(const std::string& line)
{
    return line.substr(std::min(line.find_first_not_of(' '), line.size()));
}

/// Through a proxy with TLS of its own, libcurl 7.88 has no reason for a handshake that a certificate ended,
/// and words the proxy's certificate as the server's.
void classify_certificate(request_result& result, const server_certificate& shown, long proxy_verified)
{
    if (result.code == CURLE_SSL_CONNECT_ERROR && !shown.problem.empty()) {
        result.code = CURLE_PEER_FAILED_VERIFICATION;
        result.message = shown.problem;
    }
    if (result.code != CURLE_PEER_FAILED_VERIFICATION) {
        return;
    }
    if (!shown.pin.empty()) {
        result.message += "; its key is " + shown.pin;
    } else if (proxy_verified != X509_V_OK) {
        result.code = CURLE_COULDNT_CONNECT;
        result.message = "the certificate of the proxy: " + result.message;
    }
}

} // namespace

connection::connection(const url& server, const session_options& options)
    : location_(server), options_(options), server_(server.server()), check_(location_, options_),
      login_(location_, options_),
      sockets_(options.tls == tls_mode::strict || server.scheme == url_scheme::ftps),
      data_tls_(check_, server.scheme == url_scheme::ftps), callbacks_(location_, options.stop, data_tls_)
{
    login_.set_up(handle_, check_.policy());
    sockets_.set_up(handle_);
    data_tls_.set_up(handle_);
    callbacks_.set_up(handle_);
    setopt(handle_, CURLOPT_ERRORBUFFER, message_.data());
    response said{0, "no password was given"};
    for (unsigned attempt = 0; !logged_in_; ++attempt) {
        if (!login_.provide_password(handle_, attempt)) {
            throw LoginRefused(server_, said);
        }
        try {
            log_in();
        } catch (const LoginRefused& refused) {
            if (!login_.may_ask_again(attempt + 1)) {
                throw;
            }
            said = said_by(refused);
        }
    }
}

/// A new certificate is asked about while there is no connection: neither the server nor a limit of time waits.
request_result connection::reach()
{
    const request first{.subject = server_, .commands = {"FEAT"}};
    try {
        return run(first);
    } catch (const new_certificate& found) {
        check_.policy().accept_new(found.shown);
    }
    return run(first);
}

void connection::log_in()
{
    const request_result result = reach();
    if (!result.is_done()) {
        throw_failure(server_, {.subject = server_}, result, true);
    }
    logged_in_ = true;
    const char* folder = nullptr;
    curl_easy_getinfo(handle_.get(), CURLINFO_FTP_ENTRY_PATH, &folder);
    // The server's word, but it goes into commands.
    info_.login_folder = remote_path::absolute("/", folder == nullptr ? "/" : folder);
    check_text(info_.login_folder, "the folder of the login");
    if (!result.replies.empty()) {
        info_.greeting = result.replies.front().lines.back();
        read_features(result.last_reply());
    }
}

void connection::read_features(const reply& features)
{
    constexpr long system_status = 211;
    if (features.code == system_status && features.lines.size() > 2) {
        std::transform(features.lines.begin() + 1, features.lines.end() - 1, std::back_inserter(info_.features),
                       trimmed);
    }
}

std::string connection::url_of(const std::string& path)
{
    try {
        return core::make_absolute_url(handle_, server_, path, false);
    } catch (const std::logic_error&) {
        throw std::bad_alloc(); // what the core means by it: libcurl has no memory for the escaped name
    }
}

void connection::set_commands(const request& request)
{
    const auto set = [&](command_list& held, CURLoption option, const std::vector<std::string>& commands) {
        command_list made = make_list(commands);
        setopt(handle_, option, get(made));
        held = std::move(made);
    };
    set(before_, CURLOPT_QUOTE, unchecked(request.commands));
    set(between_, CURLOPT_PREQUOTE, commands_before_retrieval(request));
    set(after_, CURLOPT_POSTQUOTE, unchecked(request.last_commands));
}

void connection::set_request(const request& request)
{
    const bool body = request.on_data || request.list_command != nullptr;
    set_commands(request);
    setopt(handle_, CURLOPT_URL, url_of(request.path));
    setopt(handle_, CURLOPT_UPLOAD, request.source != nullptr ? 1L : 0L); // before NOBODY, which it changes
    setopt(handle_, CURLOPT_NOBODY, body || request.source != nullptr ? 0L : 1L);
    if (request.list_command == nullptr) {
        setopt(handle_, CURLOPT_CUSTOMREQUEST, nullptr);
    } else {
        setopt(handle_, CURLOPT_CUSTOMREQUEST, std::string(request.list_command));
    }
    setopt(handle_, CURLOPT_FTP_FILEMETHOD,
           request.change_directory ? CURLFTPMETHOD_SINGLECWD : CURLFTPMETHOD_NOCWD);
    const bool part = request.source == nullptr && request.range.end != byte_range::to_the_end;
    if (part) { // from where the server was told to begin
        setopt(handle_, CURLOPT_RANGE, fmt::format("0-{}", request.range.end - request.range.begin - 1));
    } else {
        setopt(handle_, CURLOPT_RANGE, nullptr);
    }
    setopt(handle_, CURLOPT_RESUME_FROM_LARGE, request.source != nullptr ? request.range.begin : 0);
    const auto size = request.source == nullptr ? std::nullopt : request.source->size;
    setopt(handle_, CURLOPT_INFILESIZE_LARGE, size ? static_cast<curl_off_t>(*size) : -1);
    setopt(handle_, CURLOPT_FRESH_CONNECT, is_stale() ? 1L : 0L);
    set_trace_callback(handle_);
}

curl_socket_t connection::socket() const
{
    curl_socket_t found = CURL_SOCKET_BAD;
    (void)curl_easy_getinfo(handle_.get(), CURLINFO_ACTIVESOCKET, &found);
    return found;
}

/// Whether something came between two requests, such as the end. libcurl looks, too, but 8.22 not within a
/// second of the last time.
bool connection::is_stale() const
{
    pollfd control{socket(), POLLIN, 0};
    return control.fd != CURL_SOCKET_BAD && ::poll(&control, 1, 0) > 0;
}

/// Ends a connection that libcurl takes for a good one: the next request makes another. Without this libcurl
/// would say goodbye on it first, and take an earlier reply for the answer.
void connection::sever()
{
    if (socket() != CURL_SOCKET_BAD) {
        ::shutdown(socket(), SHUT_RDWR);
    }
}

request_result connection::perform(const request& request)
{
    if (callbacks_.is_busy()) {
        throw std::logic_error("a session was used in a callback of its own request");
    }
    message_.front() = '\0';
    set_request(request);
    callbacks_.begin(request);
    data_tls_.reset();
    check_.reset();
    request_result result;
    result.code = handle_.perform();
    callbacks_.end();
    // What libcurl gave up in the middle may still be answered.
    const bool out_of_step = result.code == CURLE_FTP_WEIRD_PASV_REPLY || result.code == CURLE_PARTIAL_FILE ||
                             check_.thrown() != nullptr || callbacks_.has_lost_reply();
    if (out_of_step) {
        sever();
    }
    result.replies = callbacks_.replies();
    result.message = message_.data();
    if (result.message.empty() && !result.is_done()) {
        result.message = curl_easy_strerror(static_cast<CURLcode>(result.code));
    }
    result.moved = callbacks_.moved();
    result.source = callbacks_.source();
    result.encrypted = data_tls_.is_used();
    result.ended_by_close_notify = data_tls_.is_ended();
    long verified = 0;
    long connections = 0;
    long proxy_verified = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_PROXY_SSL_VERIFYRESULT, &proxy_verified);
    curl_easy_getinfo(handle_.get(), CURLINFO_HTTP_CONNECTCODE, &result.proxy_status);
    curl_easy_getinfo(handle_.get(), CURLINFO_SSL_VERIFYRESULT, &verified);
    curl_easy_getinfo(handle_.get(), CURLINFO_NUM_CONNECTS, &connections);
    result.reconnected = !result.replies.empty() && result.replies.front().code == 220 && connections > 0;
    if (!callbacks_.encryption().empty()) {
        info_.encryption = callbacks_.encryption();
    }
    classify(request, result, verified);
    classify_certificate(result, check_.shown(), proxy_verified);
    return result;
}

/// A line end in a name would make a second command of what follows.
void connection::check_names(const request& request)
{
    check_text(request.path, request.subject);
    for (const auto* const commands : {&request.commands, &request.last_commands}) {
        for (const std::string& command : *commands) {
            check_text(command, request.subject);
        }
    }
}

bool connection::may_repeat(const request& request, const request_result& result)
{
    // A command that is answered with the server's goodbye has not been carried out.
    const bool goodbye = result.last_reply().code == code::service_not_available;
    if (request.needs_same_connection || !(request.repeatable ? goodbye || is_lost(result) : goodbye)) {
        return false;
    }
    if (result.moved == 0) {
        return true;
    }
    return request.source == nullptr && request.restart && request.restart();
}

request_result connection::run(const request& request)
{
    check_names(request);
    constexpr int tries = 2;
    for (int tried = 1;; ++tried) {
        if (request.cancellable && options_.stop.stop_requested()) {
            throw Cancelled(request.subject);
        }
        sockets_.allow();
        const auto end = [this] { sockets_.shut_down(); };
        std::optional<std::stop_callback<decltype(end)>> ends_waits;
        if (request.cancellable) {
            ends_waits.emplace(options_.stop, end);
        }
        request_result result = perform(request);
        ends_waits.reset();
        if (callbacks_.thrown()) {
            std::rethrow_exception(callbacks_.thrown());
        }
        if (check_.thrown()) {
            std::rethrow_exception(check_.thrown());
        }
        if (sockets_.refusal()) {
            std::rethrow_exception(sockets_.refusal());
        }
        if (result.is_done() || is_refusal(result)) {
            return result;
        }
        if (request.cancellable && options_.stop.stop_requested()) {
            throw Cancelled(request.subject);
        }
        if (tried == tries || !may_repeat(request, result)) {
            refuse_other_server(location_, data_tls_.first_bytes());
            throw_failure(server_, request, result, !logged_in_);
        }
    }
}

} // namespace qrftp::ftp

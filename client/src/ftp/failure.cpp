#include "failure.hpp"

#include <curl/curl.h>
#include <openssl/x509_vfy.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <new>
#include <string_view>

namespace qrftp::ftp {

namespace {

template <std::size_t Count>
bool is_one_of(const std::array<CURLcode, Count>& codes, int code)
{
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

bool is_passive(long code)
{
    return code == 227 || code == 229; // RFC 959, 4.2.2; RFC 2428, 3
}

/// The server's own refusal, which libcurl reports as something else: an upload that the server would not
/// continue, as a connection that broke; a transfer over TLS that it did not even begin, as a bad answer to
/// PASV, which libcurl 7.88 sends when the handshake of the data connection fails, or as that handshake's
/// failure; and 450 to a listing, as an empty one.
bool is_disguised_refusal(const request& request, const request_result& result)
{
    constexpr long failed = 400;
    static constexpr std::array network{code::service_not_available, code::cannot_open_data_connection,
                                        code::connection_closed};
    const long reply = result.last_reply().code;
    const bool refused = reply >= failed && std::find(network.begin(), network.end(), reply) == network.end();
    return refused && ((result.is_done() && request.list_command != nullptr) ||
                       result.code == CURLE_FTP_WEIRD_PASV_REPLY ||
                       (result.code == CURLE_SSL_CONNECT_ERROR && request.on_data) ||
                       (result.code == CURLE_PARTIAL_FILE && request.source != nullptr));
}

/// The server was told where to, or has told it, and no data connection came about. libcurl tries PASV after
/// EPSV, which a server may not know.
bool is_blocked_data_connection(const request_result& result)
{
    static constexpr std::array passive{CURLE_COULDNT_CONNECT, CURLE_OPERATION_TIMEDOUT};
    static constexpr std::array active{CURLE_FTP_ACCEPT_FAILED, CURLE_FTP_ACCEPT_TIMEOUT,
                                       CURLE_FTP_PORT_FAILED};
    const bool falls_back = result.code == CURLE_FTP_WEIRD_PASV_REPLY && !result.encrypted &&
                            result.last_reply().is_unknown_command() && is_passive(result.last_reply(1).code);
    return (is_one_of(passive, result.code) && is_passive(result.last_reply().code)) || falls_back ||
           is_one_of(active, result.code);
}

/// Encryption that failed, and libcurl reports something else: a certificate with a wrong signature, as any
/// handshake that fails; more in the clear than the answer to AUTH, as a weird reply; and the handshake of a
/// data connection, as a bad answer to PASV (see above).
void classify_tls_failure(request_result& result, long verified)
{
    const auto says = [&](const char* part) { return result.message.find(part) != std::string::npos; };
    if (result.code == CURLE_SSL_CONNECT_ERROR && says(" routines:") && !says("SSL routines:")) {
        result.code = CURLE_PEER_FAILED_VERIFICATION;
        result.message = "its signature is wrong; " + result.message;
    } else if (result.code == CURLE_WEIRD_SERVER_REPLY && result.last_reply().code == code::security_accepted) {
        result.code = CURLE_USE_SSL_FAILED;
        result.message = "plaintext received before TLS started: possible man in the middle";
    } else if (result.code == CURLE_FTP_WEIRD_PASV_REPLY && verified != X509_V_OK) {
        const bool known = verified != X509_V_ERR_UNSPECIFIED;
        result.code = known ? CURLE_PEER_FAILED_VERIFICATION : CURLE_USE_SSL_FAILED;
        result.message = fmt::format("data connection: {}",
                                     known ? X509_verify_cert_error_string(verified) : "the handshake failed");
    }
}

/// libcurl words it in several ways, also as a server that was lost.
void classify_proxy_refusal(request_result& result)
{
    constexpr long redirected = 300;
    if (!result.is_done() && result.proxy_status >= redirected) {
        result.code = CURLE_PROXY;
        result.message = std::to_string(result.proxy_status);
    }
}

void find_missing_end(const request& request, request_result& result)
{
    if (!result.is_done() || !request.on_data) {
        return;
    }
    const std::uint64_t got = request.range.begin + result.moved;
    const auto whole = request.expected_size ? request.expected_size : result.source.size;
    if (request.range.end == byte_range::to_the_end && result.source.size && got < *result.source.size) {
        result.code = CURLE_PARTIAL_FILE;
        result.message = fmt::format("{} of {} bytes", got, *result.source.size);
    } else if (whole != got && request.range.end == byte_range::to_the_end && result.encrypted &&
               !result.ended_by_close_notify) {
        result.code = CURLE_PARTIAL_FILE;
        result.message = "the encrypted data connection was cut off (no close_notify)";
    }
}

bool accepts_tls(const request_result& result)
{
    return std::any_of(result.replies.begin(), result.replies.end(),
                       [](const reply& answer) { return answer.code == code::security_accepted; });
}

/// What may help where TLS did not begin.
const char* handshake_hint(const std::string& server, const std::string& message)
{
    if (message.find("alert handshake failure") != std::string::npos) {
        return "; the server may want a client certificate (--cert)";
    }
    return server.starts_with("ftps://") ? "; write ftp:// for a server that begins TLS after its greeting"
                                         : "";
}

} // namespace

const reply& request_result::last_reply(std::size_t from_last) const
{
    static const reply none;
    return from_last < replies.size() ? replies[replies.size() - 1 - from_last] : none;
}

response request_result::said() const
{
    const reply& last = last_reply();
    const bool refused = last.code >= 400 && !last.lines.empty();
    return {last.code, refused ? last.lines.back() : message};
}

void classify(const request& request, request_result& result, long verified)
{
    classify_proxy_refusal(result);
    if (is_blocked_data_connection(result)) {
        result.code = CURLE_FTP_ACCEPT_FAILED;
    } else if (is_disguised_refusal(request, result)) {
        result.code = request.source != nullptr ? CURLE_UPLOAD_FAILED : CURLE_FTP_COULDNT_RETR_FILE;
    }
    classify_tls_failure(result, verified);
    find_missing_end(request, result);
}

bool is_lost(const request_result& result)
{
    static constexpr std::array codes{CURLE_WEIRD_SERVER_REPLY, CURLE_PARTIAL_FILE, CURLE_GOT_NOTHING,
                                      CURLE_SEND_ERROR, CURLE_RECV_ERROR};
    return is_one_of(codes, result.code);
}

bool is_refusal(const request_result& result)
{
    static constexpr std::array codes{CURLE_QUOTE_ERROR,          CURLE_REMOTE_FILE_NOT_FOUND,
                                      CURLE_REMOTE_ACCESS_DENIED, CURLE_FTP_COULDNT_RETR_FILE,
                                      CURLE_UPLOAD_FAILED,        CURLE_REMOTE_DISK_FULL,
                                      CURLE_REMOTE_FILE_EXISTS,   CURLE_FTP_COULDNT_USE_REST,
                                      CURLE_FTP_COULDNT_SET_TYPE, CURLE_BAD_DOWNLOAD_RESUME};
    return is_one_of(codes, result.code) && result.last_reply().code != code::service_not_available;
}

void refuse_other_server(const url& server, std::string_view greeting)
{
    const auto refuse = [&server](const char* what, const char* scheme) {
        throw NoConnection(server.server(), {0, fmt::format("{}; write {}://{}:{}/", what, scheme, server.host,
                                                            server.effective_port())});
    };
    if (greeting.starts_with("SSH-")) {
        refuse("this is an SSH server", "sftp");
    }
    if (greeting.starts_with("220") && server.scheme == url_scheme::ftps) {
        refuse("this server begins TLS after its greeting", "ftp");
    }
}

void throw_failure(const std::string& server, const request& request, const request_result& result,
                   bool logging_in)
{
    const response said = result.said();
    switch (result.code) {
    case CURLE_LOGIN_DENIED:
        throw LoginRefused(server, said);
    case CURLE_PEER_FAILED_VERIFICATION:
        throw CertificateRefused(server, {said.code, result.message}); // whatever the server replied
    case CURLE_PROXY:
        throw ProxyRefused(server, {0, result.message});
    case CURLE_USE_SSL_FAILED:
        if (said.code >= 400 && !accepts_tls(result)) {
            throw NoEncryption(server, "offers no TLS", said);
        }
        [[fallthrough]];
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
        throw NoEncryption(server, {said.code, said.message + handshake_hint(server, said.message)});
    case CURLE_FTP_ACCEPT_FAILED:
        throw NoConnection(
            "data connection of " + server,
            {said.code, result.message + "; a firewall may block it, active mode may help, or passive"});
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_FAILED_INIT:
        throw NoConnection(server, said);
    case CURLE_URL_MALFORMAT:
        throw InvalidName(request.subject, "a control character");
    case CURLE_ABORTED_BY_CALLBACK:
        throw Cancelled(request.subject, said);
    case CURLE_OUT_OF_MEMORY:
        throw std::bad_alloc();
    default:
        break;
    }
    if (logging_in) {
        throw NoConnection(server, said);
    }
    if (result.code == CURLE_PARTIAL_FILE && request.list_command != nullptr) {
        throw IncompleteListing(request.subject, result.message, said);
    }
    if (result.code == CURLE_PARTIAL_FILE) {
        throw SizeMismatch(request.subject, result.message, said);
    }
    if (is_lost(result) || said.code == code::service_not_available) {
        throw ConnectionLost(request.subject, said);
    }
    if (result.code == CURLE_OPERATION_TIMEDOUT) {
        throw Timeout(request.subject, said);
    }
    throw Refused(request.subject, said);
}

} // namespace qrftp::ftp

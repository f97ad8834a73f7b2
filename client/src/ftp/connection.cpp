#include "engine.hpp"

#include "call.hpp"
#include "login.hpp"
#include "names.hpp"

#include <foundation/core/except/Exception.hpp>
#include <foundation/net/peer_closed.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>
#include <zorbel/io/ftp/core/request.hpp>

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>
#include <utility>

namespace qrftp {

namespace core = zorbel::io::ftp::core;
using core::scoped_request;
using foundation::core::except::raise;

namespace {

constexpr long closing = 421; // RFC 959, 4.2: the server closes the control connection

/// On a control connection, which is a Telnet connection, the byte 255 begins a command of Telnet's (RFC 854).
/// Servers differ in what they make of a doubled one.
void refuse_telnet(const request& wanted)
{
    const auto holds_it = [](const std::string& text) { return text.find('\xff') != std::string::npos; };
    if (holds_it(wanted.path) || std::any_of(wanted.commands.begin(), wanted.commands.end(), holds_it)) {
        raise<error::InvalidName>('"' + wanted.about + '"', "the byte 255");
    }
}

template <std::size_t Count>
bool is_one_of(const std::array<CURLcode, Count>& codes, int code)
{
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

/// SFTP: one and the same result says that the server refused and that the connection broke; libcurl's words
/// tell them apart. Words that are not about a request are about the connection.
bool ssh_is_lost(const outcome& result)
{
    const bool refused = result.words.find(": ") != std::string::npos;
    return !refused || result.words.ends_with("Unknown error in libssh2") ||
           result.words.find("ssh error") != std::string::npos;
}

/// SFTP: some words end in the error of libssh2, too, which is always the same one when the server has
/// answered.
bool names_other_error(const std::string& words)
{
    static constexpr std::string_view answered = "31"; // less than 0: LIBSSH2_ERROR_SFTP_PROTOCOL
    static constexpr std::array<std::string_view, 2> marks{" :: -", "/-"};
    return std::any_of(marks.begin(), marks.end(), [&](std::string_view mark) {
        const std::size_t error = words.rfind(mark);
        return error != std::string::npos && words.compare(error + mark.size(), answered.size(), answered) != 0;
    });
}

/// SFTP: why the server refused, in libcurl's words for its status.
std::string reason_of(const outcome& result)
{
    const std::string reason = result.words.substr(std::min(result.words.find(": "), result.words.size()));
    return reason.substr(0, std::min(reason.find(" ("), reason.find(" :: ", 1)));
}

bool is_closed(const core::curl_ptr& connection)
{
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(connection.get(), CURLINFO_ACTIVESOCKET, &socket);
    return socket != CURL_SOCKET_BAD && foundation::net::peer_closed(socket);
}

/// FTP: the server's own refusal, which libcurl reports as something else: an upload that the server would not
/// go on with, as a connection that broke; and a transfer over TLS that it did not even begin, as a bad answer
/// to PASV, which libcurl 7.88 sends when the handshake of the data connection fails.
bool is_disguised_refusal(const request& wanted, const outcome& result)
{
    constexpr long failed = 400;
    static constexpr std::array network{closing, 425L, 426L}; // RFC 959, 4.2.2
    const long reply = result.reply().code;
    const bool refused = reply >= failed && std::find(network.begin(), network.end(), reply) == network.end();
    return refused && (result.code == CURLE_FTP_WEIRD_PASV_REPLY ||
                       (result.code == CURLE_PARTIAL_FILE && wanted.source != nullptr));
}

/// Encryption that failed, and libcurl reports something else: a certificate with a wrong signature, as any
/// handshake that fails; more in the clear than the answer to AUTH, as a weird reply; and the handshake of a
/// data connection, as a bad answer to PASV (see above). `verified` is about the last handshake.
void tell_encryption(outcome& result, long verified)
{
    constexpr long goes_ahead = 234; // RFC 2228, 5.1
    const auto says = [&](const char* part) { return result.words.find(part) != std::string::npos; };
    if (result.code == CURLE_SSL_CONNECT_ERROR && says(" routines:") && !says("SSL routines:")) {
        result.code = CURLE_PEER_FAILED_VERIFICATION;
        result.words = "its signature is wrong; " + result.words;
    } else if (result.code == CURLE_WEIRD_SERVER_REPLY && result.reply().code == goes_ahead) {
        result.code = CURLE_USE_SSL_FAILED;
        result.words = "replies came before the encryption, perhaps from somebody in between";
    } else if (result.code == CURLE_FTP_WEIRD_PASV_REPLY && verified != X509_V_OK) {
        const bool known = verified != X509_V_ERR_UNSPECIFIED;
        result.code = known ? CURLE_PEER_FAILED_VERIFICATION : CURLE_USE_SSL_FAILED;
        result.words = std::string("data connection: ") +
                       (known ? X509_verify_cert_error_string(verified) : "the handshake failed");
    }
}

void tell_loss(outcome& result)
{
    result.code = CURLE_SSH;
    result.words = "the connection was lost";
}

/// The connection broke, in one way or another.
bool is_lost(const outcome& result)
{
    static constexpr std::array codes{CURLE_WEIRD_SERVER_REPLY, CURLE_PARTIAL_FILE, CURLE_GOT_NOTHING,
                                      CURLE_SEND_ERROR, CURLE_RECV_ERROR};
    const bool ssh = result.code == CURLE_SSH || (result.code == CURLE_QUOTE_ERROR && result.replies.empty());
    return is_one_of(codes, result.code) || (ssh && ssh_is_lost(result));
}

/// The server was reached and said no.
bool is_refusal(const outcome& result)
{
    static constexpr std::array codes{CURLE_QUOTE_ERROR,
                                      CURLE_REMOTE_FILE_NOT_FOUND,
                                      CURLE_REMOTE_ACCESS_DENIED,
                                      CURLE_FTP_COULDNT_RETR_FILE,
                                      CURLE_UPLOAD_FAILED,
                                      CURLE_REMOTE_DISK_FULL,
                                      CURLE_REMOTE_FILE_EXISTS,
                                      CURLE_FTP_COULDNT_USE_REST,
                                      CURLE_FTP_COULDNT_SET_TYPE,
                                      CURLE_BAD_DOWNLOAD_RESUME,
                                      CURLE_SSH};
    return is_one_of(codes, result.code) && result.reply().code != closing && !is_lost(result);
}

std::optional<core::slist> command_list(const std::vector<std::string>& commands)
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

curl_slist* get(const std::optional<core::slist>& list)
{
    return list ? list->get() : nullptr;
}

} // namespace

const ftp_reply& outcome::reply(std::size_t from_last) const
{
    static const ftp_reply none;
    return from_last < replies.size() ? replies[replies.size() - 1 - from_last] : none;
}

answer outcome::said() const
{
    const ftp_reply& last = reply();
    const bool refused = last.code >= 400 && !last.lines.empty();
    return {last.code, code, refused ? last.lines.back() : words};
}

engine::engine(url location, options how)
    : location_(std::move(location)), how_(std::move(how)), login_(std::make_unique<login>(location_, how_))
{
    login_->set_up(connection_);
    log_in();
}

engine::~engine() = default;

void engine::log_in()
{
    request first{.about = location_.server()};
    if (!location_.sftp) {
        first.commands = {"*FEAT"};
    }
    const outcome result = run(first);
    if (!result.done()) {
        fail(first, result);
    }
    const char* folder = nullptr;
    curl_easy_getinfo(connection_.get(), CURLINFO_FTP_ENTRY_PATH, &folder);
    // The server's word, but it goes into commands: what cannot be a name leads nowhere.
    info_.login_folder = names::absolute("/", folder == nullptr ? "/" : folder);
    info_.key = login_->key();
    if (location_.sftp || result.replies.empty()) {
        return;
    }
    info_.server = result.replies.front().lines.back();
    constexpr long system_status = 211;
    if (result.reply().code == system_status && result.reply().lines.size() > 2) {
        for (std::size_t i = 1; i + 1 < result.reply().lines.size(); ++i) {
            const std::string& line = result.reply().lines[i];
            info_.features.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
        }
    }
}

std::string engine::url_of(const std::string& path)
{
    try {
        return core::make_absolute_url(connection_, location_.server(), path, false);
    } catch (const std::logic_error&) {
        throw std::bad_alloc(); // what the core means by it: libcurl has no memory for the escaped name
    }
}

outcome engine::perform(const request& wanted, call& under_way)
{
    std::array<char, CURL_ERROR_SIZE> error{};
    const bool body = wanted.take != nullptr || wanted.method != nullptr;
    const auto before = command_list(wanted.commands);
    const auto after = command_list(wanted.afterwards);
    outcome result;
    {
        scoped_request options(connection_);
        set_text(connection_, CURLOPT_URL, url_of(wanted.path));
        options.setopt(CURLOPT_ERRORBUFFER, error.data(), nullptr)
            .setopt(CURLOPT_HEADERFUNCTION, &call::take_header, nullptr)
            .setopt(CURLOPT_HEADERDATA, &under_way, nullptr)
            .setopt(CURLOPT_WRITEFUNCTION, &call::take_body, nullptr)
            .setopt(CURLOPT_WRITEDATA, &under_way, stdout)
            .setopt(CURLOPT_XFERINFOFUNCTION, &call::report, nullptr)
            .setopt(CURLOPT_XFERINFODATA, &under_way, nullptr)
            .setopt(CURLOPT_NOPROGRESS, 0L, 1L)
            .setopt(CURLOPT_NOBODY, body || wanted.source != nullptr ? 0L : 1L, 0L)
            .setopt(CURLOPT_QUOTE, get(before), nullptr)
            .setopt(CURLOPT_POSTQUOTE, get(after), nullptr)
            .setopt(CURLOPT_CUSTOMREQUEST, nullptr, nullptr)
            .setopt(CURLOPT_FTP_FILEMETHOD, wanted.enters ? CURLFTPMETHOD_SINGLECWD : CURLFTPMETHOD_NOCWD,
                    CURLFTPMETHOD_NOCWD)
            .setopt(CURLOPT_IGNORE_CONTENT_LENGTH, wanted.listed_size ? 1L : 0L, 0L)
            .setopt(CURLOPT_FILETIME, wanted.names_time ? 1L : 0L, 0L)
            .setopt(CURLOPT_RESUME_FROM_LARGE, wanted.offset, 0)
            .setopt(CURLOPT_FRESH_CONNECT, out_of_step_ ? 1L : 0L, 0L);
        if (wanted.method != nullptr) {
            set_text(connection_, CURLOPT_CUSTOMREQUEST, wanted.method);
        }
        if (wanted.rate_limit > 0) {
            // What one call moves is held back as a whole.
            options.setopt(CURLOPT_BUFFERSIZE, CURL_MAX_WRITE_SIZE, how_.receive_buffer)
                .setopt(CURLOPT_UPLOAD_BUFFERSIZE, CURL_MAX_WRITE_SIZE, how_.send_buffer);
        }
        if (wanted.source != nullptr) {
            options.setopt(CURLOPT_READFUNCTION, &call::give_body, nullptr)
                .setopt(CURLOPT_READDATA, &under_way, stdin)
                .setopt(CURLOPT_SEEKFUNCTION, &call::seek_body, nullptr)
                .setopt(CURLOPT_SEEKDATA, &under_way, nullptr)
                .setopt(CURLOPT_INFILESIZE_LARGE, wanted.source->size, -1)
                .setopt(CURLOPT_UPLOAD, 1L, 0L);
        }
        result.code = connection_.perform();
    }
    out_of_step_ = result.code == CURLE_FTP_WEIRD_PASV_REPLY || result.code == CURLE_PARTIAL_FILE;
    result.replies = parse_replies(under_way.header());
    if (is_disguised_refusal(wanted, result)) {
        result.code = wanted.source != nullptr ? CURLE_UPLOAD_FAILED : CURLE_FTP_COULDNT_RETR_FILE;
    }
    result.words = error.data();
    if (result.words.empty() && result.code != CURLE_OK) {
        result.words = curl_easy_strerror(static_cast<CURLcode>(result.code));
    }
    long verified = X509_V_OK;
    curl_easy_getinfo(connection_.get(), CURLINFO_SSL_VERIFYRESULT, &verified);
    tell_encryption(result, verified);
    if (!under_way.tls().empty()) {
        info_.tls = under_way.tls();
    }
    curl_off_t length = -1;
    curl_off_t time = -1;
    curl_easy_getinfo(connection_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    curl_easy_getinfo(connection_.get(), CURLINFO_FILETIME_T, &time);
    if (length >= 0) {
        result.length = static_cast<std::uint64_t>(length);
    }
    if (time >= 0) {
        result.time = time;
    }
    if (location_.sftp) {
        look_for_loss(wanted, result);
    }
    return result;
}

/// SFTP: what may be a lost connection, and what is one.
void engine::look_for_loss(const request& wanted, outcome& result)
{
    if (names_other_error(result.words)) {
        tell_loss(result);
    }
    const bool no_size = result.done() && wanted.commands.empty() && wanted.take == nullptr &&
                         wanted.source == nullptr && !wanted.path.ends_with('/') && !result.length;
    const bool refused = is_refusal(result);
    result.doubtful = no_size || (refused && reason_of(result) == last_reason_);
    if (refused) {
        last_reason_ = reason_of(result);
    }
}

/// SFTP: asks for what every server tells, the time of the login folder, over the same connection.
bool engine::still_answers()
{
    const request question{
        .about = "the connection", .path = info_.login_folder, .names_time = true, .cancellable = false};
    call under_way(question, how_, connection_.get());
    const bool told = perform(question, under_way).time.has_value();
    long connections = 1;
    curl_easy_getinfo(connection_.get(), CURLINFO_NUM_CONNECTS, &connections);
    return told && connections == 0;
}

outcome engine::run(const request& wanted)
{
    constexpr int tries = 2;
    if (!location_.sftp) {
        refuse_telnet(wanted);
    }
    for (int tried = 1;; ++tried) {
        call under_way(wanted, how_, connection_.get());
        outcome result = perform(wanted, under_way);
        if (under_way.thrown()) {
            std::rethrow_exception(under_way.thrown());
        }
        if (result.doubtful && (is_closed(connection_) || !still_answers())) {
            tell_loss(result);
            out_of_step_ = true; // libcurl would go on with it
        }
        if (result.done()) {
            under_way.report_end();
            return result;
        }
        if (is_refusal(result)) {
            return result;
        }
        const bool goodbye = result.reply().code == closing;
        // A command that is answered with the server's goodbye has not been carried out.
        const bool again = wanted.repeatable ? goodbye || is_lost(result) : goodbye && under_way.moved() == 0;
        const bool given_away = wanted.take && under_way.moved() > 0;
        if (tried == tries || !again || (given_away && !wanted.restart)) {
            fail(wanted, result);
        }
        if (given_away) {
            wanted.restart();
        }
        if (wanted.source != nullptr) {
            wanted.source->seek(wanted.offset);
        }
    }
}

void engine::fail(const request& wanted, const outcome& result) const
{
    const bool opening = info_.login_folder.empty();
    const std::string server = location_.server();
    answer said = result.said();
    said.words += login_->hint(result.code);
    switch (result.code) {
    case CURLE_LOGIN_DENIED:
        raise<error::LoginRefused>(server, said);
    case CURLE_PEER_FAILED_VERIFICATION:
        if (login_->host_key_refusal()) {
            std::rethrow_exception(login_->host_key_refusal());
        }
        said.words = result.words; // whatever the server replied
        raise<error::CertificateRefused>(server, said);
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
        raise<error::NoEncryption>(server, said);
    case CURLE_FAILED_INIT:
        if (!login_->asked_for().empty() && said.words.find("exchange encryption keys") != std::string::npos) {
            raise<error::HostKeyChanged>(known_hosts_name(location_.host, location_.port),
                                         "it shows no " + login_->asked_for() +
                                             " key, the type that the known-hosts file has of it",
                                         said);
        }
        raise<error::NoConnection>(server, said);
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        raise<error::NoConnection>(server, said);
    case CURLE_URL_MALFORMAT:
        raise<error::InvalidName>('"' + wanted.about + '"', "a control character");
    case CURLE_ABORTED_BY_CALLBACK:
        raise<error::Cancelled>(wanted.about, said);
    case CURLE_OUT_OF_MEMORY:
        throw std::bad_alloc();
    default:
        break;
    }
    if (opening) {
        raise<error::NoConnection>(server, said);
    }
    if (result.code == CURLE_PARTIAL_FILE) {
        raise<error::SizeMismatch>(wanted.about, said.words);
    }
    if (is_lost(result) || said.reply == closing) {
        raise<error::ServerGone>(wanted.about, said);
    }
    if (result.code == CURLE_OPERATION_TIMEDOUT) {
        raise<error::Stalled>(wanted.about, said);
    }
    raise<error::Refused>(wanted.about, said);
}

} // namespace qrftp

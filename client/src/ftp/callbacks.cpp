#include "callbacks.hpp"

#include "failure.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace qrftp::ftp {

namespace {

/// To be asked while a request runs.
std::string describe_encryption(CURL* handle)
{
    curl_tlssessioninfo* session = nullptr;
    if (curl_easy_getinfo(handle, CURLINFO_TLS_SSL_PTR, &session) != CURLE_OK || session == nullptr ||
        session->internals == nullptr || session->backend != CURLSSLBACKEND_OPENSSL) {
        return {};
    }
    const auto* const tls = static_cast<const SSL*>(session->internals);
    return std::string(SSL_get_version(tls)) + ' ' + SSL_get_cipher_name(tls);
}

} // namespace

void transfer_callbacks::set_up(const curl_ptr& handle)
{
    handle_ = handle.get();
    setopt(handle, CURLOPT_HEADERFUNCTION, &transfer_callbacks::on_reply);
    setopt(handle, CURLOPT_HEADERDATA, this);
    setopt(handle, CURLOPT_WRITEFUNCTION, &transfer_callbacks::on_body);
    setopt(handle, CURLOPT_WRITEDATA, this);
    setopt(handle, CURLOPT_READFUNCTION, &transfer_callbacks::read_body);
    setopt(handle, CURLOPT_READDATA, this);
    setopt(handle, CURLOPT_SEEKFUNCTION, &transfer_callbacks::seek_body);
    setopt(handle, CURLOPT_SEEKDATA, this);
    setopt(handle, CURLOPT_XFERINFOFUNCTION, &transfer_callbacks::on_progress);
    setopt(handle, CURLOPT_XFERINFODATA, this);
    setopt(handle, CURLOPT_NOPROGRESS, 0L);
}

void transfer_callbacks::begin(const request& request)
{
    request_ = &request;
    replies_.clear();
    replies_size_ = 0;
    lost_reply_ = false;
    encryption_.clear();
    source_ = {};
    position_ = request.range.begin;
    moved_ = 0;
    thrown_ = nullptr;
    pause_ = {};
}

void transfer_callbacks::end()
{
    request_ = nullptr;
}

template <class Work>
bool transfer_callbacks::guard(Work work) noexcept
{
    if (request_ == nullptr) {
        return true; // the connection says goodbye
    }
    try {
        work();
        return true;
    } catch (...) {
        thrown_ = std::current_exception();
        return false;
    }
}

std::size_t transfer_callbacks::on_reply(char* data, std::size_t size, std::size_t count, void* user) noexcept
{
    auto& self = *static_cast<transfer_callbacks*>(user);
    const bool kept = self.guard([&] { self.take_reply({data, size * count}); });
    self.lost_reply_ |= !kept;
    return kept ? size * count : 0;
}

void transfer_callbacks::take_reply(std::string_view line)
{
    constexpr std::size_t longest = std::size_t{1} << 20;
    const bool is_first = std::exchange(replies_size_, replies_size_ + line.size()) == 0;
    if (replies_size_ > longest) {
        throw ProtocolError(request_->subject, "its reply does not end");
    }
    if (is_first && server_.scheme == url_scheme::ftp) {
        refuse_other_server(server_, line);
    }
    replies_.add(line);
    if (encryption_.empty()) {
        encryption_ = describe_encryption(handle_);
    }
    data_.take_reply(line.starts_with("234 ") || line.starts_with("334 "));
    if (request_->want_size && line.starts_with("1")) {
        read_source();
    }
    follow_data_connection(line);
}

/// The answers to SIZE, MDTM and REST stand right before the one that announces the body.
void transfer_callbacks::read_source()
{
    constexpr long success = 200;
    const std::vector<reply>& replies = replies_.replies();
    if (replies.empty() || replies_.is_open() || replies.back().code >= success) {
        return; // a line of some text that begins so
    }
    const auto answer = [&](std::size_t before_last) {
        return before_last < replies.size() ? replies[replies.size() - 1 - before_last] : reply();
    };
    std::size_t place = request_->range.begin > 0 ? 2 : 1;
    if (request_->want_time) {
        source_.modified = parse_time(answer(place++));
    }
    source_.size = parse_size(answer(place));
}

std::size_t transfer_callbacks::on_body(char* data, std::size_t size, std::size_t count, void* user) noexcept
{
    auto& self = *static_cast<transfer_callbacks*>(user);
    const bool taken = self.guard([&] {
        if (self.moved_ == 0 && self.request_->on_begin) {
            self.request_->on_begin(self.source_);
        }
        if (self.request_->on_data) {
            self.request_->on_data({data, size * count});
        }
        self.moved_ += size * count;
    });
    return taken ? size * count : 0;
}

std::size_t transfer_callbacks::read_body(char* buffer, std::size_t size, std::size_t count,
                                          void* user) noexcept
{
    auto& self = *static_cast<transfer_callbacks*>(user);
    std::size_t given = 0;
    const bool read = self.guard([&] {
        // A file that grows is sent as long as it was found.
        const upload_source& source = *self.request_->source;
        const std::uint64_t end =
            std::min(self.request_->range.end, source.size.value_or(byte_range::to_the_end));
        const std::uint64_t left = end - std::min(self.position_, end);
        const auto most = static_cast<std::size_t>(std::min<std::uint64_t>(size * count, left));
        given = most == 0 ? 0 : source.read(self.position_, {buffer, most});
        self.position_ += given;
        self.moved_ += given;
    });
    return read ? given : CURL_READFUNC_ABORT;
}

int transfer_callbacks::seek_body(void* user, curl_off_t offset, int /*origin*/) noexcept
{
    static_cast<transfer_callbacks*>(user)->position_ = static_cast<std::uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
}

int transfer_callbacks::on_progress(void* user, curl_off_t /*total*/, curl_off_t /*received*/,
                                    curl_off_t /*to_send*/, curl_off_t sent) noexcept
{
    auto& self = *static_cast<transfer_callbacks*>(user);
    const bool continues = self.guard([&] {
        self.keep_awake();
        if (self.request_->cancellable && self.stop_.stop_requested()) {
            throw Cancelled(self.request_->subject);
        }
        if (self.request_->source != nullptr) {
            self.request_->source->on_sent(self.request_->range.begin + static_cast<std::uint64_t>(sent));
        }
        if (self.request_->on_tick) {
            self.request_->on_tick();
        }
    });
    return continues ? 0 : 1;
}

/// libcurl 7.88 can sleep up to a second, for nothing: when the server answers EPSV or PASV at once, before it
/// opens the data connection; and with TLS, while the server waits for the next command before it continues
/// with the handshake there, since the answer on the control connection wakes nobody.
void transfer_callbacks::follow_data_connection(std::string_view line)
{
    constexpr microseconds shortest{50};
    if (line.starts_with("229 ") || line.starts_with("227 ")) {
        look_again();
        pause_ = encryption_.empty() ? microseconds(0) : shortest;
    } else if (line.starts_with('1') || line.starts_with('4') || line.starts_with('5')) {
        pause_ = microseconds(0);
    } else if (pause_ > microseconds(0)) {
        look_again();
    }
}

/// A pause that is taken back makes libcurl look at its sockets again immediately.
void transfer_callbacks::look_again() const
{
    curl_easy_pause(handle_, CURLPAUSE_SEND);
    curl_easy_pause(handle_, CURLPAUSE_CONT);
}

void transfer_callbacks::keep_awake()
{
    constexpr microseconds longest{2000};
    if (pause_ > microseconds(0)) {
        std::this_thread::sleep_for(pause_);
        pause_ = std::min(pause_ * 2, longest);
        look_again();
    }
}

} // namespace qrftp::ftp

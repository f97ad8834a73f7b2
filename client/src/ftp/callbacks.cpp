#include "call.hpp"

#include <foundation/core/except/Exception.hpp>

#include <openssl/ssl.h>

#include <algorithm>
#include <thread>

namespace qrftp {

using foundation::core::except::raise;

namespace {

/// "TLSv1.2 ECDHE-…" of the control connection, empty without TLS. To be asked while a request runs.
std::string describe_tls(CURL* handle)
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

call::call(const request& wanted, const options& how, CURL* handle)
    : wanted_(wanted), how_(how), handle_(handle)
{
}

template <class Work>
bool call::guard(Work work) noexcept
{
    try {
        work();
        return true;
    } catch (...) {
        thrown_ = std::current_exception();
        return false;
    }
}

std::size_t call::take_header(char* data, std::size_t size, std::size_t count, void* user) noexcept
{
    auto& self = *static_cast<call*>(user);
    const bool kept = self.guard([&] {
        const std::string_view line(data, size * count);
        self.header_.append(line);
        if (self.tls_.empty()) {
            self.tls_ = describe_tls(self.handle_);
        }
        self.follow_data_connection(line);
    });
    return kept ? size * count : 0;
}

std::size_t call::take_body(char* data, std::size_t size, std::size_t count, void* user) noexcept
{
    auto& self = *static_cast<call*>(user);
    const bool taken = self.guard([&] {
        self.count(size * count);
        if (self.wanted_.take) {
            self.wanted_.take({data, size * count});
        }
        self.hold_back();
    });
    return taken ? size * count : 0;
}

std::size_t call::give_body(char* buffer, std::size_t size, std::size_t count, void* user) noexcept
{
    auto& self = *static_cast<call*>(user);
    std::size_t given = 0;
    const bool read = self.guard([&] {
        // A file that grows is sent as long as it was found.
        const std::uint64_t left = self.wanted_.source->size - self.position_;
        given = self.wanted_.source->read(buffer, std::min<std::uint64_t>(size * count, left));
        self.position_ += given;
        self.count(given);
        self.hold_back();
    });
    return read ? given : CURL_READFUNC_ABORT;
}

int call::seek_body(void* user, curl_off_t offset, int /*origin*/) noexcept
{
    auto& self = *static_cast<call*>(user);
    const bool sought = self.guard([&] {
        self.position_ = static_cast<std::uint64_t>(offset);
        self.wanted_.source->seek(self.position_);
    });
    return sought ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

int call::report(void* user, curl_off_t total, curl_off_t got, curl_off_t /*to_send*/, curl_off_t sent) noexcept
{
    auto& self = *static_cast<call*>(user);
    const auto done = static_cast<std::uint64_t>(self.wanted_.source != nullptr ? sent : got);
    self.total_ = static_cast<std::uint64_t>(total);
    const bool goes_on = self.guard([&] {
        self.look_for_stall(done);
        self.report_progress(done);
    });
    return goes_on ? 0 : 1;
}

/// libcurl's own limit holds while a body is under way; over SFTP, the requests before it have none. libcurl
/// looks every second at least: longer gaps are a question to the user, or a process that was stopped.
void call::look_for_stall(std::uint64_t done)
{
    constexpr clock::duration longest_gap = std::chrono::seconds(2);
    const auto now = clock::now();
    const std::uint64_t heard = done + moved_ + header_.size();
    silence_ = heard == heard_ ? silence_ + std::min(now - looked_at_, longest_gap) : clock::duration(0);
    heard_ = heard;
    looked_at_ = now;
    long connected = 0;
    curl_easy_getinfo(handle_, CURLINFO_NUM_CONNECTS, &connected);
    const auto opening = connected > 0 ? how_.connect_timeout : std::chrono::milliseconds(0);
    if (how_.stall_timeout.count() > 0 && silence_ > how_.stall_timeout + opening) {
        raise<error::Stalled>(wanted_.about, answer{.words = "the server does not answer"});
    }
}

void call::report_end() const
{
    if (wanted_.on_progress && moved_ > 0) {
        tell(moved_);
    }
}

/// libcurl 7.88 can sleep up to a second, for nothing: when the server answers EPSV or PASV at once, before it
/// opens the data connection; and with TLS, while the server waits for the next command before it goes on with
/// the handshake there, since the answer on the control connection wakes nobody.
void call::follow_data_connection(std::string_view line)
{
    constexpr microseconds shortest{50};
    if (line.starts_with("229 ") || line.starts_with("227 ")) {
        look_again();
        pause_ = tls_.empty() ? microseconds(0) : shortest;
    } else if (line.starts_with('1') || line.starts_with('4') || line.starts_with('5')) {
        pause_ = microseconds(0);
    } else if (pause_ > microseconds(0)) {
        look_again();
    }
}

/// A pause that is taken back makes libcurl look at its sockets again immediately.
void call::look_again() const
{
    curl_easy_pause(handle_, CURLPAUSE_SEND);
    curl_easy_pause(handle_, CURLPAUSE_CONT);
}

void call::keep_awake()
{
    constexpr microseconds longest{2000};
    if (pause_ > microseconds(0)) {
        std::this_thread::sleep_for(pause_);
        pause_ = std::min(pause_ * 2, longest);
        look_again();
    }
}

/// The time that the connection and the server took before the first byte is no part of the rate.
void call::count(std::uint64_t bytes)
{
    if (moved_ == 0) {
        began_ = clock::now();
    }
    moved_ += bytes;
}

/// libcurl's own limit lets bursts of many buffers through.
void call::hold_back()
{
    constexpr std::chrono::milliseconds slice(50);
    if (wanted_.rate_limit == 0) {
        return;
    }
    const std::chrono::duration<double> due(static_cast<double>(moved_) /
                                            static_cast<double>(wanted_.rate_limit));
    const auto left = [&] { return due - (clock::now() - began_); };
    while (left().count() > 0) {
        std::this_thread::sleep_for(std::min<std::chrono::duration<double>>(left(), slice));
        report_progress(moved_);
    }
}

void call::report_progress(std::uint64_t done)
{
    keep_awake();
    if (wanted_.cancellable && how_.cancelled && how_.cancelled()) {
        raise<error::Cancelled>(wanted_.about);
    }
    constexpr auto interval = std::chrono::milliseconds(50);
    const auto now = clock::now();
    if (wanted_.on_progress && now - reported_ >= interval) {
        reported_ = now;
        tell(done);
    }
}

void call::tell(std::uint64_t bytes) const
{
    const double seconds = std::chrono::duration<double>(clock::now() - began_).count();
    const std::uint64_t whole = wanted_.source != nullptr ? wanted_.source->size
                                : total_ > 0              ? total_ + wanted_.offset
                                                          : wanted_.listed_size.value_or(0);
    const double rate = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
    if (!wanted_.on_progress({bytes + wanted_.offset, whole, rate})) {
        raise<error::Cancelled>(wanted_.about);
    }
}

} // namespace qrftp

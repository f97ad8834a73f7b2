#include "data_tls.hpp"

#include "../trace.hpp"

namespace qrftp::ftp {

namespace {

/// Where a context of OpenSSL's keeps its `data_tls`.
int data_index()
{
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

} // namespace

void data_tls::set_up(const curl_ptr& handle)
{
    setopt(handle, CURLOPT_SSL_CTX_FUNCTION, &data_tls::on_context);
    setopt(handle, CURLOPT_SSL_CTX_DATA, this);
}

void data_tls::reset()
{
    context_ = nullptr;
    ended_ = false;
    first_bytes_.clear();
    control_is_next_ = is_implicit_;
}

CURLcode data_tls::on_context(CURL* /*handle*/, void* context, void* self) noexcept
{
    auto& mine = *static_cast<data_tls*>(self);
    auto* const made = static_cast<SSL_CTX*>(context);
    if (SSL_CTX_get_max_proto_version(made) == TLS1_3_VERSION) {
        return CURLE_OK; // a proxy's, which libcurl judges by itself: servers get no more than TLS 1.2
    }
    mine.check_.watch(made);
    if (mine.control_is_next_) {
        mine.control_is_next_ = false;
        if (mine.is_implicit_ && !is_traced(trace_level::debug)) { // libcurl traces by the same callback.
            SSL_CTX_set_msg_callback(made, &data_tls::on_record);
            SSL_CTX_set_msg_callback_arg(made, &mine);
        }
        return CURLE_OK;
    }
    if (SSL_CTX_set_ex_data(made, data_index(), &mine) == 0) {
        return CURLE_OUT_OF_MEMORY;
    }
    SSL_CTX_set_info_callback(made, &data_tls::on_event);
    // Without it libcurl 8 fails where close_notify is missing, and libcurl 7 does not; the client judges.
    SSL_CTX_set_options(made, SSL_OP_IGNORE_UNEXPECTED_EOF);
    mine.context_ = made;
    mine.ended_ = false;
    return CURLE_OK;
}

void data_tls::on_record(int sent, int /*version*/, int type, const void* data, std::size_t size,
                         SSL* /*connection*/, void* self) noexcept
{
    auto& first = static_cast<data_tls*>(self)->first_bytes_;
    if (sent == 0 && type == SSL3_RT_HEADER && first.empty()) {
        first.assign(static_cast<const char*>(data), size); // no more than a string holds by itself
    }
}

void data_tls::on_event(const SSL* connection, int where, int value) noexcept
{
    if (where != SSL_CB_READ_ALERT || (value & 0xff) != SSL_AD_CLOSE_NOTIFY) {
        return;
    }
    const SSL_CTX* const context = SSL_get_SSL_CTX(connection);
    auto* const mine = static_cast<data_tls*>(SSL_CTX_get_ex_data(context, data_index()));
    if (mine->context_ == context) {
        mine->ended_ = true;
    }
}

} // namespace qrftp::ftp

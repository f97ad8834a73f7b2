#pragma once

#include <zorbel/io/ftp/core/set_option.hpp>

#include <new>
#include <string>

namespace qrftp::ftp {

using zorbel::io::ftp::core::curl_ptr;

/// Sets an option of libcurl's.
template <class Value>
void setopt(const curl_ptr& handle, CURLoption option, Value value)
{
    zorbel::io::ftp::core::set_option(handle, option, value);
}

/// Sets an option that libcurl keeps a copy of, and throws `std::bad_alloc` when it has no memory for that:
/// without its URL or its command, the request would be another one.
inline void setopt(const curl_ptr& handle, CURLoption option, const std::string& text)
{
    handle.throw_if_null();
    if (curl_easy_setopt(handle.get(), option, text.c_str()) == CURLE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
}

} // namespace qrftp::ftp

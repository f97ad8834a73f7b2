#pragma once

#include <zorbel/io/ftp/core/connection.hpp>

#include <type_traits>

namespace zorbel::io::ftp::core {

/// Sets one libcurl option of the connection, for good. The result of the setting is not tested.
///
/// `curl_easy_setopt` takes its value through a C ellipsis and reads back the type that goes with the option;
/// here, and nowhere else, the value gets that type: numbers (whole numbers and enumerators) become
/// `curl_off_t` for the options that take one and `long` for all others, so that an `int` -1 stays -1. Pointers
/// pass as they are. A truth value is refused, since 0 or 1 should be said in full.
///
/// Throws `InvalidCurlHandle`.
template <class Value>
void set_option(const curl_ptr& connection, CURLoption option, Value value)
{
    static_assert(!std::is_same_v<Value, bool>, "libcurl switches are long: write 0L or 1L");
    connection.throw_if_null();
    if constexpr (std::is_integral_v<Value> || std::is_enum_v<Value>) {
        if (option >= CURLOPTTYPE_OFF_T && option < CURLOPTTYPE_BLOB) {
            curl_easy_setopt(connection.get(), option, static_cast<curl_off_t>(value));
        } else {
            curl_easy_setopt(connection.get(), option, static_cast<long>(value));
        }
    } else if constexpr (std::is_null_pointer_v<Value>) {
        curl_easy_setopt(connection.get(), option, static_cast<void*>(nullptr));
    } else {
        static_assert(std::is_pointer_v<Value>, "a number or a pointer");
        curl_easy_setopt(connection.get(), option, value);
    }
}

} // namespace zorbel::io::ftp::core

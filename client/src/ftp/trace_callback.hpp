#pragma once

#include "setopt.hpp"

namespace qrftp::ftp {

/// Sends the commands and replies of a connection to the client's trace ("> RETR x", "< 226 done"), and
/// libcurl's own words to the core's log. To be called before each request: without either, libcurl is told to
/// be quiet.
void set_trace_callback(const curl_ptr& handle);

} // namespace qrftp::ftp

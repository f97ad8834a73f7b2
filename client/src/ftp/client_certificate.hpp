#pragma once

#include "setopt.hpp"

#include <qrftp/options.hpp>

#include <string>

namespace qrftp::ftp {

/// Makes libcurl show `server` the client certificate of `options`, if they have one; asks for the pass phrase
/// of its key where there is one to ask for. Throws `LocalFileError`, `InvalidOption` for files that do not
/// hold a certificate and its key, and `LoginRefused` where the user gives no pass phrase.
void set_client_certificate(const curl_ptr& handle, const session_options& options, const std::string& server);

/// Throws `LocalFileError` for a file without certificates of authorities; libcurl would not name it.
void check_authorities(const std::filesystem::path& file);

} // namespace qrftp::ftp

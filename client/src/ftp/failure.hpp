#pragma once

#include "request.hpp"

#include <qrftp/url.hpp>

#include <string_view>

/// What a result of libcurl's means.
namespace qrftp::ftp {

/// Gives results that libcurl words as something else, or as success, their own code. `verified` is OpenSSL's
/// verdict about the certificate of the last handshake.
void classify(const request& request, request_result& result, long verified);

/// The connection broke, in one way or another; or not all of a body came.
bool is_lost(const request_result& result);

/// The server was reached and said no.
bool is_refusal(const request_result& result);

/// Throws where the first words of a server are those of another kind than the URL says: libcurl would wait for
/// what it understands, or say that TLS failed. Where TLS is implicit, `greeting` is what came in place of it.
void refuse_other_server(const url& server, std::string_view greeting);

/// Throws the error that `result`, which is no refusal, stands for. `logging_in`: the connection was just to be
/// opened.
[[noreturn]] void throw_failure(const std::string& server, const request& request, const request_result& result,
                                bool logging_in);

} // namespace qrftp::ftp

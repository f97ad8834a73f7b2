#pragma once

#include <qrftpclient_export.hpp>

#include <functional>
#include <string>
#include <string_view>

namespace qrftp {

enum class trace_level {
    off,
    dialogue, ///< what is asked of servers and answered: FTP's commands and replies, SFTP's requests by name
    debug,    ///< also what libcurl says, and libssh on the thread that called `set_trace`
};

/// Sends what the sessions of the process do to `on_line`, a line at a time, one call at a time, on the thread
/// that does it; without `on_line`, to standard error. Secrets are masked. `on_line` must
/// use nothing of the library, this function included, nor write to the host's log. While the level is
/// `debug`, the program's own handler of the host's log gets nothing.
///
/// To be called by one thread at a time.
QRFTPCLIENT_EXPORT void set_trace(trace_level level, std::function<void(std::string_view line)> on_line = {});

/// The libraries in use with their versions: "libcurl/7.88.1 OpenSSL/3.0.17 libssh/0.10.6".
[[nodiscard]] QRFTPCLIENT_EXPORT std::string versions();

/// `text` for a terminal: control characters, and bytes that are not UTF-8, as escapes.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string escape(std::string_view text);

/// From now on traces, and the server's words in errors, show `secret` as asterisks.
QRFTPCLIENT_EXPORT void mask_secret(std::string_view secret);
/// `text` with all such secrets as asterisks.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string masked(std::string_view text);

} // namespace qrftp

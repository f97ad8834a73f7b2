#pragma once

#include <qrftp/session.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace qrftp {

/// Whether `path` matches the glob `pattern`: "*" and "?" stop at "/", "**" does not, "[…]" is a set, and a
/// backslash takes the next byte as it is.
[[nodiscard]] QRFTPCLIENT_EXPORT bool glob_match(std::string_view pattern, std::string_view path);

/// Whether `text` holds "*", "?" or "[" that no backslash stands before.
[[nodiscard]] QRFTPCLIENT_EXPORT bool has_magic(std::string_view text) noexcept;

/// `text` as a pattern, or a part of one, that matches it alone; and back: without the backslashes.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string glob_escape(std::string_view text);
[[nodiscard]] QRFTPCLIENT_EXPORT std::string glob_unescape(std::string_view pattern);

/// What `pattern` stands for on the server, in the order of the names; "**" is not known here, and hidden names
/// match only a pattern that begins with a dot. A name that is exactly what a segment says wins over those that
/// match it. Lists the folders above each segment with a wildcard. Nothing found is an empty answer; so is a
/// folder that is missing below a wildcard. Throws what `session::list` throws.
[[nodiscard]] QRFTPCLIENT_EXPORT std::vector<remote_entry> glob(session& server, const std::string& pattern);

} // namespace qrftp

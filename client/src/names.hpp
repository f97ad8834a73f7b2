#pragma once

#include <string>
#include <string_view>

/// Rules for remote names, which are bytes with "/" between segments. None of them sends anything.
namespace qrftp::names {

/// Throws `error::InvalidName` when `text`, described by `what`, holds CR, LF or NUL: on a control connection
/// they end a command, and what follows would be another one.
void check(std::string_view text, const char* what);

/// `path` as seen from the absolute folder `folder`, without empty, "." and ".." segments; checked.
std::string absolute(const std::string& folder, const std::string& path);

/// Of an absolute path: the folder above it, "/" for "/"; its last segment, "/" for "/".
std::string parent(const std::string& path);
std::string last(const std::string& path);

/// `name` below the absolute `folder`.
std::string join(const std::string& folder, const std::string& name);

/// Deeper folders than any file system has them are a server's joke.
inline constexpr int deepest = 256;

/// A name that nothing else has, for a file on its way.
std::string temporary();

} // namespace qrftp::names

#pragma once

#include "protocol.hpp"

#include <string>

namespace qrftp {

/// Gives the remote file `from` the name `to`. With `may_replace`, a file or link that has it is replaced:
/// where the server does not do that by itself, it is moved aside first, and back when the renaming fails.
/// Without, something that has it is `AlreadyExists`: it is looked for right before the renaming, which is as
/// near as FTP comes.
///
/// When the connection breaks in between, the server is asked afterwards which of the names it has; the old
/// file goes back as soon as the server answers. Where that fails, the error names the file that holds it.
void replace_file(protocol& server, const std::string& from, const std::string& to, bool may_replace);

/// Makes a symbolic link that says `target`, byte for byte. With `may_replace`, a file or link that has the
/// name is replaced. Throws `NotSupported` where the server would make another target of it.
void replace_link(protocol& server, const std::string& target, const std::string& path, bool may_replace);

} // namespace qrftp

#pragma once

#include <qrftp/tree.hpp>

#include <string>

namespace qrftp {

/// Copies a file from one server to another one, or on one server; `from` and `to` may be one session. No local
/// file is made. The target is whole or as it was before, as with `session::send`, and gets time and mode of
/// the source where the options say so. `resume`, `jobs` and the options about parts of a file have no meaning.
///
/// On one SFTP server that offers copy-data, with one login, the server copies by itself. Otherwise what is
/// fetched from the one is sent to the other meanwhile; what arrives must be as long as the source. After a
/// break of the connection that is written to, all is sent anew: the source may have changed. Throws what
/// `session::fetch` and `session::send` throw; `InvalidOption` for a file to be copied to itself.
QRFTPCLIENT_EXPORT void copy(session& from, const std::string& source, session& to, const std::string& target,
                             const transfer_options& options = {});

/// Copies the folder `source` with all that is in it into the folder `target`, which is made when missing.
/// Files are copied as `copy` does, several at a time over connections of their own (`jobs`, 4 by default).
/// Throws `InvalidOption` for a folder to be copied into itself.
QRFTPCLIENT_EXPORT tree_result copy_tree(session& from, const std::string& source, session& to,
                                         const std::string& target, const tree_options& options = {});

} // namespace qrftp

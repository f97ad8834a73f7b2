#pragma once

#include <string>

/// What each protocol's room tells of the libraries that it stands on.
namespace qrftp {

namespace ftp {

/// "libcurl/7.88.1 OpenSSL/3.0.17"
std::string library_versions();
/// Sends libcurl's own words to the host's log; and no more than before.
void trace_libraries(bool on);

} // namespace ftp

namespace sftp {

/// "libssh/0.10.6"
std::string library_versions();
/// Sends libssh's own words to the trace; and back to where they went before.
void trace_libraries(bool on);

} // namespace sftp

} // namespace qrftp

#pragma once

#include <string>

/// What each protocol's room tells of the libraries that it stands on.
namespace qrftp {

namespace ftp {

/// "libcurl/7.88.1 OpenSSL/3.0.17"
std::string library_versions();
/// Whether libcurl's own words go to the host's log.
void trace_libraries(bool on);

} // namespace ftp

namespace sftp {

/// "libssh/0.10.6"
std::string library_versions();
/// Whether libssh's own words go to the trace.
void trace_libraries(bool on);

} // namespace sftp

} // namespace qrftp

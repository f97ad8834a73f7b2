#pragma once

#include "ftp.hpp"

namespace qrftp::ftp {

/// Sends a file: TYPE, STOR (APPE where it completes a file), SIZE, what sets the file's facts, RNFR, RNTO.
/// What breaks off is taken up again as often as `files` says, from where SIZE tells that the server's part
/// ends.
void send_file(ftp& server, const upload_batch::part& what, upload_batch& files);

} // namespace qrftp::ftp

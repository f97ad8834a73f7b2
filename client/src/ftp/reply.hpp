#pragma once

#include <string>
#include <vector>

namespace qrftp {

/// One reply of the control connection, all its lines without their ends (RFC 959, 4.2).
struct ftp_reply {
    long code = 0;
    std::vector<std::string> lines;
};

/// The replies in what a control connection brought.
std::vector<ftp_reply> parse_replies(const std::string& text);

} // namespace qrftp

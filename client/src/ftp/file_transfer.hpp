#pragma once

#include "ftp.hpp"

/// One file over FTP.
namespace qrftp::ftp {

/// TYPE, SIZE, RETR, and MDTM where the time is asked for.
void fetch_file(ftp& server, download& file);

/// TYPE, STOR (APPE where it completes a file), SIZE, what sets the file's facts, RNFR, RNTO.
void send_file(ftp& server, upload& file);

} // namespace qrftp::ftp

#pragma once

#include "ftp.hpp"

namespace qrftp::ftp {

/// Fetches a file, or a part of it: TYPE, SIZE, MDTM, REST, RETR. What breaks off is taken up again as often as
/// `files` says: from where it was if SIZE and MDTM tell what they told before, else anew.
void fetch_file(ftp& server, const download_batch::part& what, download_batch& files);

} // namespace qrftp::ftp

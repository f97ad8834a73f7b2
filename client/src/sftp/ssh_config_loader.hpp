#pragma once

#include "ssh_config.hpp"

#include <qrftp/options.hpp>

namespace qrftp::sftp {

/// Reads the files that `files` names: those that are missing and were not named are empty. Throws
/// `LocalFileError` for a named file that cannot be read and for a user's file that others can write to, and
/// `InvalidOption`.
ssh_config load_ssh_config(const ssh_config_files& files, const ssh_config_query& query);

} // namespace qrftp::sftp

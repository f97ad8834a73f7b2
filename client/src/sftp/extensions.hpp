#pragma once

#include "pipeline.hpp"

namespace qrftp::sftp {

/// rename(2): replaces a file that has the new name.
inline const request posix_rename("posix-rename@openssh.com", packet_type::status);

/// Changes a link itself.
inline constexpr std::string_view lsetstat = "lsetstat@openssh.com";

} // namespace qrftp::sftp

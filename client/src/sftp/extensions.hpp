#pragma once

#include "pipeline.hpp"

namespace qrftp::sftp {

/// rename(2): replaces a file that has the new name.
inline const request posix_rename("posix-rename@openssh.com", packet_type::status);

/// link(2).
inline const request hard_link("hardlink@openssh.com", packet_type::status);
/// statvfs(3).
inline const request statvfs("statvfs@openssh.com", packet_type::extended_reply);
/// Copies a part of one open file into another one (draft-ietf-secsh-filexfer-extensions-00, 7).
inline const request copy_data_extension("copy-data", packet_type::status);

/// Changes a link itself.
inline constexpr std::string_view lsetstat = "lsetstat@openssh.com";

} // namespace qrftp::sftp

#pragma once

#include "pipeline.hpp"

#include <qrftp/checksum.hpp>

#include <string>

namespace qrftp::sftp {

/// rename(2): replaces a file that has the new name.
inline const request posix_rename("posix-rename@openssh.com", packet_type::status);

/// Computes a checksum of a file (draft-ietf-secsh-filexfer-extensions-00, 3).
inline const request check_file("check-file-name", packet_type::extended_reply);
/// What is asked for, the strongest first.
inline constexpr const char* check_file_algorithms = "sha256,sha1,md5,crc32";
/// The checksum of the whole file in an answer that is no status. Throws `NotSupported` for an algorithm that
/// was not asked for.
[[nodiscard]] checksum read_check_file(const reply& answer, const std::string& subject);
/// link(2).
inline const request hard_link("hardlink@openssh.com", packet_type::status);
/// statvfs(3).
inline const request statvfs("statvfs@openssh.com", packet_type::extended_reply);
/// Copies a part of one open file into another one (draft-ietf-secsh-filexfer-extensions-00, 7).
inline const request copy_data_extension("copy-data", packet_type::status);

/// Changes a link itself.
inline constexpr std::string_view lsetstat = "lsetstat@openssh.com";

} // namespace qrftp::sftp

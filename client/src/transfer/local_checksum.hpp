#pragma once

#include <qrftp/checksum.hpp>
#include <zorbel/io/common/file/Folder.hpp>

namespace qrftp {

/// The checksum of an open file. Throws what reading it does.
[[nodiscard]] checksum checksum_of(zorbel::io::common::file::LocalFile& file, hash_algorithm algorithm);

} // namespace qrftp

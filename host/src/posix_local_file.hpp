#pragma once

#include <zorbel/io/common/file/Folder.hpp>

#include <sys/stat.h>

namespace zorbel::io::common::file {

/// Takes the open `descriptor` over; errors name `path`.
std::unique_ptr<LocalFile> make_posix_file(int descriptor, std::filesystem::path path);

Status to_status(const struct stat& from);

} // namespace zorbel::io::common::file

#pragma once

#include <zorbel/io/common/file/Folder.hpp>

#include <sys/stat.h>

#include <functional>

namespace zorbel::io::common::file {

/// The file that `open` gives the descriptor of, or -1 and the reason in `errno`; errors name `path`. Nothing
/// is allocated after `open`: no file is made and then lost for want of memory.
std::unique_ptr<LocalFile> open_posix_file(std::filesystem::path path, const std::function<int()>& open);

Status to_status(const struct stat& from);

} // namespace zorbel::io::common::file

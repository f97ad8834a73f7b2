#pragma once

#include <zorbel/io/common/file/Folder.hpp>

namespace zorbel::io::common::file {

/// A folder of the machine.
std::shared_ptr<Folder> open_posix_folder(const std::filesystem::path& path);

} // namespace zorbel::io::common::file

#pragma once

#include <zorbel/io/common/file/FileSystem.hpp>

namespace zorbel::io::common::file {

/// The files of the machine.
std::shared_ptr<FileSystem> make_posix_file_system();

} // namespace zorbel::io::common::file

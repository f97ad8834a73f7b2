#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace qrftp {

/// Who may have written a file that is read.
enum class file_writers {
    anyone,
    this_user_or_root, ///< a file that others own or can write to is refused
};

/// The content of a small file, such as a configuration file. Throws `LocalFileError`, also for one of more
/// than 16 MiB.
std::string read_text_file(const std::filesystem::path& file, file_writers writers = file_writers::anyone);

/// Adds `line` and a line end to `file` in a single write, on a line of its own. The file, and its folder, is
/// made for this user alone when missing. Throws `LocalFileError`.
void append_line(const std::filesystem::path& file, std::string_view line);

} // namespace qrftp

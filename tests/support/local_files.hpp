#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace support {

/// What each path of a tree holds: a file its content, a folder "/", a link "-> " and where it leads.
using files = std::map<std::string, std::string>;

/// What a local folder holds.
files files_in(const std::filesystem::path& root);
/// Those of its paths that are temporary names.
files leftovers_in(const std::filesystem::path& root);

/// Bytes without a pattern that a buffer's size divides.
std::string bytes(std::size_t size);

std::string content(const std::filesystem::path& file);

/// Writes a local file, and makes the folders above it.
void write_file(const std::filesystem::path& file, const std::string& content);

/// Lets the file be last changed 20 years ago, before all that servers tell.
void make_old(const std::filesystem::path& file);

/// A new folder, which goes with all that is in it.
struct temporary_folder : std::filesystem::path {
    temporary_folder();
    temporary_folder(const temporary_folder&) = delete;
    ~temporary_folder();
};

} // namespace support

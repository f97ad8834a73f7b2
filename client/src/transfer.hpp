#pragma once

#include "remote.hpp"

#include <filesystem>
#include <string>

/// Single files, with paths that are absolute on the server. They throw as `session::fetch` and `send` do.
namespace qrftp {

void fetch_file(remote& server, const std::string& path, const std::filesystem::path& local,
                const transfer_options& how);
void send_file(remote& server, const std::filesystem::path& local, const std::string& path,
               const transfer_options& how);

/// Renames `from`, which replaces a file `to`. If the server does not do that by itself, the old file is moved
/// aside first, and back when the renaming fails.
void rename_over(remote& server, const std::string& from, const std::string& to);

} // namespace qrftp

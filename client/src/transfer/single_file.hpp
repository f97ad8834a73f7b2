#pragma once

#include <qrftp/session.hpp>

#include <filesystem>
#include <string>

/// Single files, with paths that are absolute on the server. They throw as `session::fetch` and `send` do. A
/// large file goes in parts over several connections where the options allow them and the protocol can.
namespace qrftp {

void fetch_file(const session& from, const std::string& path, const std::filesystem::path& local,
                const transfer_options& options);
void send_file(const session& to, const std::filesystem::path& local, const std::string& path,
               const transfer_options& options);

} // namespace qrftp

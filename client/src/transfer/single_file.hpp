#pragma once

#include <qrftp/session.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>

/// Single files, with paths that are absolute on the server. They throw as `session::fetch` and `send` do. A
/// large file goes in parts over several connections where the options allow them and the protocol can.
namespace qrftp {

void fetch_file(const session& from, const std::string& path, const std::filesystem::path& local,
                const transfer_options& options);
void send_file(const session& to, const std::filesystem::path& local, const std::string& path,
               const transfer_options& options);

/// The same from and to functions of the caller's, in order over one connection.
void fetch_data(const session& from, const std::string& path,
                const std::function<bool(std::string_view)>& on_data, const transfer_options& options);
void send_data(const session& to, const std::function<std::size_t(std::span<char>)>& read,
               const std::string& path, const transfer_options& options);

} // namespace qrftp

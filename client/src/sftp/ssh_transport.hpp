#pragma once

#include "transport.hpp"

#include <qrftp/options.hpp>
#include <qrftp/server_info.hpp>
#include <qrftp/url.hpp>

#include <memory>

namespace qrftp::sftp {

/// Connects to the server, checks its host key, logs in and starts the subsystem "sftp". Fills in the greeting,
/// the ciphers and the key of `info`. Nothing secret is sent before the host key was accepted.
///
/// Throws `NoConnection`, `HostKeyUnknown`, `HostKeyChanged`, `HostKeyRevoked`, `LoginRefused`,
/// `ConnectionLost`, `Timeout`, `Cancelled`; `NotSupported` for a server without the subsystem;
/// `InvalidOption`, `InvalidName` and `LocalFileError` for settings, configuration files and keys that cannot
/// be used.
std::unique_ptr<transport> connect_ssh(const url& server, const session_options& options, server_info& info);

} // namespace qrftp::sftp

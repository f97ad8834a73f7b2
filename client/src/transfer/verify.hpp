#pragma once

#include "../protocol.hpp"

#include <qrftp/transfer.hpp>

#include <optional>
#include <string>

namespace qrftp {

/// How the server computes checksums. Throws `NotSupported` about `server` where it does not.
checksum_method require_checksums(protocol& asked, const std::string& server);

/// The same where `options` ask for a comparison; else nothing.
std::optional<checksum_method> verification_of(protocol& asked, const std::string& server,
                                               const transfer_options& options);

/// Throws `ChecksumMismatch` about `path` where the two differ, `NotSupported` where they cannot be compared.
void check_same(const std::string& path, const checksum& here, const checksum& there);

} // namespace qrftp

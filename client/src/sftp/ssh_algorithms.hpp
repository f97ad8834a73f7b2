#pragma once

#include <string>
#include <vector>

namespace qrftp::sftp {

/// The ciphers to offer, best first, for libssh: AES-GCM where the processor has instructions for AES,
/// chacha20-poly1305 else; AES-CTR last.
const char* preferred_ciphers();

/// The algorithms of host keys to ask for, for libssh: those of `known_types` first, then all others.
std::string host_key_algorithms(const std::vector<std::string>& known_types);

} // namespace qrftp::sftp

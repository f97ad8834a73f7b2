#pragma once

#include <qrftpclient_export.hpp>

#include <filesystem>
#include <string>
#include <string_view>

namespace qrftp {

enum class hash_algorithm { sha256, sha1, md5, crc32 };

/// "SHA-256", "SHA-1", "MD5", "CRC32".
[[nodiscard]] QRFTPCLIENT_EXPORT std::string_view name_of(hash_algorithm algorithm) noexcept;

/// The checksum of a file's content. MD5 and CRC32 tell accidents, not forgeries.
struct checksum {
    hash_algorithm algorithm = hash_algorithm::sha256;
    std::string digits{}; ///< hexadecimal, in small letters

    friend bool operator==(const checksum&, const checksum&) = default;
};

/// How a server computes checksums: "HASH", "XSHA256", "XSHA1", "XMD5", "XCRC" (FTP), "check-file" (SFTP).
struct checksum_method {
    std::string command{};
    hash_algorithm algorithm = hash_algorithm::sha256;
};

/// The checksum of a local file. Throws `LocalFileError`, and `InvalidOption` for an algorithm that the policy
/// of the system forbids (MD5 with FIPS).
[[nodiscard]] QRFTPCLIENT_EXPORT checksum checksum_of(const std::filesystem::path& file,
                                                      hash_algorithm algorithm);

} // namespace qrftp

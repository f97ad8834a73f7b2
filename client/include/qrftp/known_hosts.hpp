#pragma once

#include <qrftpclient_export.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp {

/// A server's host key, as it is met or known.
struct host_key {
    std::string host; ///< as known-hosts files write it: the name on port 22, else "[name]:port"; lower case
    std::string type; ///< "ssh-ed25519", "ecdsa-sha2-nistp256", "ssh-rsa", …
    std::string blob; ///< the public key in the encoding of RFC 4253, 6.6

    /// "SHA256:" and the hash in base64 without padding, as OpenSSH prints it.
    [[nodiscard]] QRFTPCLIENT_EXPORT std::string fingerprint() const;

    /// The line of a known-hosts file, without a line end: host, type, base64 of the key.
    [[nodiscard]] QRFTPCLIENT_EXPORT std::string line() const;

    bool operator==(const host_key&) const = default;
};

/// The type that a key's encoding begins with; empty when it does not.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string_view type_of_key(std::string_view blob);

/// `name` and `port` as known-hosts files write a host.
[[nodiscard]] QRFTPCLIENT_EXPORT std::string known_hosts_name(std::string_view name, std::uint16_t port);

enum class host_key_match {
    known,      ///< a line has this host with this key
    unknown,    ///< no line is about this host
    changed,    ///< the host has another key of the same type
    other_type, ///< the host has keys, but none of this type
    revoked,    ///< an "@revoked" line has this key for this host
};

/// The content of a known-hosts file in OpenSSH's format (sshd(8), SSH_KNOWN_HOSTS FILE FORMAT): lists of
/// patterns with "*", "?" and "!", hashed names, the markers "@revoked" and "@cert-authority" (whose lines are
/// no host keys and are passed over), comments. Lines that cannot be read are passed over. Copies share their
/// content.
class QRFTPCLIENT_EXPORT known_hosts {
public:
    known_hosts();
    explicit known_hosts(std::string_view text);
    known_hosts(const known_hosts&) noexcept = default; // Moves are copies.
    known_hosts& operator=(const known_hosts&) noexcept = default;

    /// A missing file is an empty one. Throws `LocalFileError`.
    [[nodiscard]] static known_hosts read(const std::filesystem::path& file);

    /// Looks at every line: a revoked key is revoked, and a key that one line has is known, whatever the others
    /// say. A host on another port than 22 is known by "[name]:port" only.
    [[nodiscard]] host_key_match match(const host_key& key) const;

    /// The keys that the lines without a marker have for `host`, in the order of the file.
    [[nodiscard]] std::vector<host_key> keys_of(std::string_view host) const;

    /// Adds the line of `key` at the end of `file`, which is made when missing, its folder too, for this user
    /// alone; no line that is there is changed. Throws `LocalFileError`.
    static void append(const std::filesystem::path& file, const host_key& key);

private:
    struct content;
    std::shared_ptr<const content> content_;
};

} // namespace qrftp

#pragma once

#include <libssh/libssh.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace qrftp::sftp {

struct ssh_key_deleter {
    void operator()(ssh_key key) const noexcept { ssh_key_free(key); }
};
/// A key of libssh, public or private.
using key_ptr = std::unique_ptr<ssh_key_struct, ssh_key_deleter>;

/// A key file's text: OpenSSH's own format, or PEM.
class private_key_file {
public:
    /// Throws `LocalFileError` for a file that cannot be read, `InvalidOption` for one that holds no private
    /// key.
    explicit private_key_file(const std::filesystem::path& file);

    [[nodiscard]] bool is_encrypted() const { return encrypted_; }
    /// The public key that the file itself tells; empty for an encrypted PEM file.
    [[nodiscard]] const std::string& public_key() const { return public_key_; }

    /// Null where the pass phrase is wrong or libssh cannot read the key.
    [[nodiscard]] key_ptr load(const char* pass_phrase) const;

private:
    std::string text_;
    std::string public_key_;
    bool encrypted_ = false;
};

/// The key, or the certificate, in the text of a ".pub" file: type, base64, comment. Empty where there is none.
std::string public_key_of(std::string_view text);

/// Whether `certificate` is an OpenSSH certificate for the public key `key`.
bool certifies(std::string_view certificate, std::string_view key);

/// Null for a type that libssh does not know.
key_ptr import_public(const std::string& key);
key_ptr import_certificate(const std::string& certificate);

} // namespace qrftp::sftp

#pragma once

#include "../protocol.hpp"
#include "reply.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qrftp::ftp {

/// Asks for checksums of remote files, by the command that the server has for it.
class checksum_commands {
public:
    /// Sends commands and returns the last reply.
    using sender = std::function<reply(const std::string& path, std::vector<std::string> commands)>;

    checksum_commands(const server_info& info, sender send);

    /// HASH (draft-bryan-ftpext-hash), else XSHA256, XSHA1, XMD5 or XCRC; nothing where FEAT told none of them.
    [[nodiscard]] const std::optional<checksum_method>& method() const { return method_; }
    /// The checksum of the file at `path`; nothing where the server refuses: `said` is then what it said.
    [[nodiscard]] std::optional<checksum> ask(const std::string& path, response& said) const;

private:
    sender send_;
    std::optional<checksum_method> method_;
};

/// The hexadecimal digits of a checksum by `algorithm` in what a server answered.
std::optional<checksum> find_checksum(std::string_view answer, hash_algorithm algorithm);

} // namespace qrftp::ftp

#include "verify.hpp"

#include <fmt/format.h>

namespace qrftp {

checksum_method require_checksums(protocol& asked, const std::string& server)
{
    if (auto method = asked.find_checksum_method()) {
        return *std::move(method);
    }
    throw NotSupported(server, {.message = "it has none of the commands that compute checksums: HASH, XSHA256, "
                                           "XSHA1, XMD5, XCRC, SFTP check-file; nothing was transferred"});
}

std::optional<checksum_method> verification_of(protocol& asked, const std::string& server,
                                               const transfer_options& options)
{
    if (!options.verify) {
        return std::nullopt;
    }
    if (options.offset > 0 || options.length) {
        throw InvalidOption("verify", "a part of a file cannot be compared");
    }
    return require_checksums(asked, server);
}

void check_same(const std::string& path, const checksum& here, const checksum& there)
{
    if (here.algorithm != there.algorithm) {
        throw NotSupported(path,
                           {.message = fmt::format("its content was asked for as {}, and the server told {}",
                                                   name_of(here.algorithm), name_of(there.algorithm))});
    }
    if (here != there) {
        throw ChecksumMismatch(path, fmt::format("{} is {} here and {} on the server", name_of(here.algorithm),
                                                 here.digits, there.digits));
    }
}

} // namespace qrftp

#include "../hasher.hpp"
#include "extensions.hpp"

#include <array>

namespace qrftp::sftp {

checksum read_check_file(const reply& answer, const std::string& subject)
{
    packet_reader fields = answer.body();
    std::string_view algorithm = fields.read_string();
    if (algorithm == "check-file") { // Some say first what they answer.
        algorithm = fields.read_string();
    }
    static constexpr std::array<std::string_view, 4> names{"sha256", "sha1", "md5", "crc32"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names.at(i) == algorithm) {
            return {static_cast<hash_algorithm>(i), hex_of(fields.rest())};
        }
    }
    throw NotSupported(subject, {.message = "its checksum is of a kind that was not asked for"});
}

} // namespace qrftp::sftp

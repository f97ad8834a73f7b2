// Known-hosts files: whatever a file holds, the keys read from it are found again, and a line that is added for
// a key makes it known.

#include <qrftp/known_hosts.hpp>

#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const qrftp::known_hosts hosts(text);
    for (const char* host : {"h", "[h]:2222", "127.0.0.1"}) {
        for (const auto& key : hosts.keys_of(host)) {
            const auto match = hosts.match(key);
            if (match != qrftp::host_key_match::known && match != qrftp::host_key_match::revoked) std::abort();
            if (qrftp::known_hosts(key.line()).match(key) != qrftp::host_key_match::known) std::abort();
        }
    }
    return 0;
}

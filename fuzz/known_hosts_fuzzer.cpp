// Known-hosts files: the keys of any file are found again, others never are, and a line makes one known, or
// revoked. The first is a host, too.
#include "fuzz.hpp"
#include <qrftp/known_hosts.hpp>
using namespace qrftp;
using enum host_key_match;
static void fuzz(std::string_view input)
{
    const std::string text(input);
    const known_hosts hosts(text);
    for (const std::string& host : {take_line(input), std::string("[h]:2222")}) {
        bool same = false;
        const auto keys = hosts.keys_of(host);
        for (const host_key& key : keys) {
            const std::string line = key.line(), bare = line.substr(key.host.size());
            same |= key.type == "ssh-rsa";
            require(hosts.match(key) == known || hosts.match(key) == revoked);
            require(!key.type.empty() && type_of_key(key.blob) == key.type && key.fingerprint().size() == 50);
            require(known_hosts("h" + bare).match({"H", key.type, key.blob}) == known);
            require(known_hosts(text + "\n@revoked *" + bare).match(key) == revoked);
            require(key.host.empty() || key.host.find_first_of("!*?,|@# \t\r") != none ||
                    known_hosts(line).match(key) == known);
        }
        require(hosts.match({host, "rsa-sha2-256", "no key"}) == (keys.empty() ? unknown
                                                                  : same       ? changed
                                                                               : other_type));
    }
}

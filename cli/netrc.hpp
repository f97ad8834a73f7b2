#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qrftp::cli {

/// What a netrc file has for a host.
struct netrc_entry {
    std::string login;
    std::string password;
};

/// The first entry of `text` for `host`, and for `user` unless that is empty; else the default one on the same
/// terms. Words may be quoted with `"`; "#" where a keyword may stand opens a comment.
std::optional<netrc_entry> find_in_netrc(std::string_view text, std::string_view host, std::string_view user);

} // namespace qrftp::cli

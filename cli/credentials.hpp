#pragma once

#include "netrc.hpp"

#include <qrftp/url.hpp>

#include <optional>
#include <string>

namespace qrftp::cli {

/// Where a user name and a password may come from.
struct credential_sources {
    url server;                               ///< with what it says of both
    std::string user_option;                  ///< of --user; empty without one
    std::optional<std::string> password_file; ///< what --password-file holds
    std::optional<std::string> environment;   ///< QRFTP_PASSWORD
    std::optional<netrc_entry> netrc;         ///< the server's
};

struct credentials {
    std::string user; ///< empty: what the protocol has for nobody in particular
    std::optional<std::string> password;
};

/// The user of --user, else the URL's: the one that netrc is searched for.
std::string named_user(const credential_sources& sources);

/// Whether netrc may have anything that the other sources do not.
bool needs_netrc(const credential_sources& sources);

/// The first user name and the first password, in the order of the members above. QRFTP_PASSWORD is for some
/// account, and never goes to an anonymous login, which has an empty password where netrc has none.
credentials choose_credentials(const credential_sources& sources);

} // namespace qrftp::cli

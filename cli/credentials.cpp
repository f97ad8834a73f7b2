#include "credentials.hpp"

namespace qrftp::cli {

namespace {

bool is_anonymous(const credential_sources& sources, const std::string& user)
{
    return sources.server.scheme != url_scheme::sftp && (user.empty() || user == "anonymous");
}

std::optional<std::string> password_without_netrc(const credential_sources& sources, const std::string& user)
{
    if (!sources.server.password.empty()) {
        return sources.server.password;
    }
    if (sources.password_file) {
        return sources.password_file;
    }
    return is_anonymous(sources, user) ? std::nullopt : sources.environment;
}

} // namespace

std::string named_user(const credential_sources& sources)
{
    return sources.user_option.empty() ? sources.server.user : sources.user_option;
}

bool needs_netrc(const credential_sources& sources)
{
    const std::string user = named_user(sources);
    return user.empty() || !password_without_netrc(sources, user);
}

credentials choose_credentials(const credential_sources& sources)
{
    credentials chosen{named_user(sources), std::nullopt};
    if (chosen.user.empty() && sources.netrc) {
        chosen.user = sources.netrc->login;
    }
    chosen.password = password_without_netrc(sources, chosen.user);
    if (!chosen.password && sources.netrc && !sources.netrc->password.empty()) {
        chosen.password = sources.netrc->password;
    }
    if (!chosen.password && is_anonymous(sources, chosen.user)) {
        chosen.password = "";
    }
    return chosen;
}

} // namespace qrftp::cli

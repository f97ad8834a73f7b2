#include "protocol.hpp"
#include "session_access.hpp"

#include <qrftp/session.hpp>

/// What a session asks and sets of files besides their names and their content.
namespace qrftp {

// NOLINTBEGIN(readability-make-member-function-const): what they change or ask is the server's

void session::set_permissions(const std::string& path, std::filesystem::perms mode)
{
    session_access::server(*this).require_facts(absolute(path), {.mode = mode});
}

void session::set_modification_time(const std::string& path, std::chrono::sys_seconds time)
{
    session_access::server(*this).require_facts(absolute(path), {.modified = time});
}

void session::make_link(const std::string& target, const std::string& path)
{
    protocol& server = session_access::server(*this);
    server.check_name(target);
    server.make_link(target, absolute(path));
}

void session::make_hard_link(const std::string& existing, const std::string& path)
{
    session_access::server(*this).make_hard_link(absolute(existing), absolute(path));
}

std::string session::read_link(const std::string& path)
{
    const std::string whole = absolute(path);
    auto target = session_access::server(*this).read_link(whole);
    if (!target) {
        (void)stat(path);
        throw Refused(whole, {.message = "it is no symbolic link"});
    }
    return *std::move(target);
}

disk_space session::space(const std::string& path)
{
    return session_access::server(*this).space(absolute(path));
}

// NOLINTEND(readability-make-member-function-const)

} // namespace qrftp

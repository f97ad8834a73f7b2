#include "sftp_protocol.hpp"
#include "ssh_transport.hpp"

namespace qrftp {

std::unique_ptr<protocol> open_sftp(const url& server, const session_options& options)
{
    const auto connect = [server](const session_options& current, server_info& info) {
        return sftp::connect_ssh(server, current, info);
    };
    return std::make_unique<sftp::sftp_protocol>(connect, server.server(), options);
}

} // namespace qrftp

#include "bulk_copy.hpp"

namespace qrftp::sftp {

void send_all(pipeline& server)
{
    while (server.unsent() > 0) {
        server.pump();
    }
}

void drain(pipeline& server) noexcept
{
    const std::stop_token stop = server.stop();
    const auto deadline = server.deadline();
    try {
        server.set_stop({});
        const auto patience = std::chrono::milliseconds(stop.stop_requested() ? 200 : 5000);
        server.set_deadline(pipeline::clock::now() + patience);
        while (server.outstanding() > 0) {
            server.pump();
        }
    } catch (...) { // NOLINT(bugprone-empty-catch): the failure before it is the one to report
    }
    server.set_stop(stop);
    server.set_deadline(deadline);
}

} // namespace qrftp::sftp

#pragma once

#include "../refusal.hpp"
#include "sftp_protocol.hpp"

/// How `sftp_protocol` runs a request.
namespace qrftp::sftp {

/// Runs `work` on the connection; what ends the session is about `subject` then.
template <class Work>
auto sftp_protocol::perform(const std::string& subject, const Work& work)
{
    pipeline& server = connected();
    try {
        return work(server);
    } catch (const Cancelled&) {
        throw Cancelled(subject);
    } catch (const Timeout& failure) {
        throw Timeout(subject, said_by(failure));
    } catch (const ConnectionLost& failure) {
        throw ConnectionLost(subject, said_by(failure));
    }
}

/// The same, once more over a new connection.
template <class Work>
auto sftp_protocol::ask(const std::string& subject, const Work& work)
{
    try {
        return perform(subject, work);
    } catch (const ConnectionLost&) { // below
    }
    return perform(subject, work);
}

/// The same for what must not be done twice: `is_done` finds out whether it was.
template <class Work, class IsDone>
void sftp_protocol::modify(const std::string& subject, const Work& work, const IsDone& is_done)
{
    try {
        return perform(subject, work);
    } catch (const ConnectionLost&) {
        if (is_done()) {
            return;
        }
    }
    perform(subject, work);
}

} // namespace qrftp::sftp

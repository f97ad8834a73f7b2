#pragma once

#include "local_files.hpp"
#include "sftp_peer.hpp"
#include "ssh_peer.hpp"

#include <functional>
#include <mutex>
#include <string>

namespace support {

/// `sftp_peer` as a server on a port of loopback, one connection at a time. Any user logs in with the password
/// "p". Files are of 2024-01-02 03:04:05.
class sftp_server {
public:
    sftp_server();

    [[nodiscard]] std::string url() const;
    void keep(const files& all);
    [[nodiscard]] files kept() const;
    /// Changes the peer, which no connection reaches meanwhile.
    void script(const std::function<void(sftp_peer& peer)>& change);
    /// After a cut, no connection is served any more.
    void stay_away()
    {
        script([this](sftp_peer&) { stays_away_ = true; });
    }
    /// How often a connection was cut.
    [[nodiscard]] int cuts() const;

private:
    std::optional<std::string> answer(std::string_view bytes);
    ssh_peer::channel_handler open_channel();

    mutable std::mutex mutex_;
    sftp_peer peer_;
    bool stays_away_ = false;
    int cuts_ = 0;
    ssh_peer ssh_;
};

} // namespace support

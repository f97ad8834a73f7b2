#pragma once

#include "local_files.hpp"
#include "memory_files.hpp"
#include "sftp_peer.hpp"

#include <sftp/sftp_protocol.hpp>

#include <gtest/gtest.h>

/// The client's SFTP without SSH, before a server in memory.
struct SftpProtocol : testing::Test {
    SftpProtocol() { options.stall_timeout = std::chrono::milliseconds(20); }

    qrftp::sftp::sftp_protocol& server()
    {
        if (!opened) {
            opened = std::make_unique<qrftp::sftp::sftp_protocol>(
                [this](const qrftp::session_options&, qrftp::server_info&) {
                    if (connections++ > 0) {
                        peer.reconnect();
                    }
                    return std::make_unique<peer_transport>(peer);
                },
                "host", options);
        }
        return *opened;
    }
    /// How a download alone ends.
    std::string fetch(memory_batch<memory_download>& one)
    {
        server().fetch(one);
        EXPECT_EQ(peer.open_handles(), 0U);
        return one.result(one.files.front());
    }
    /// Nothing is left open, nor under a temporary name.
    void expect_nothing_left()
    {
        EXPECT_EQ(peer.open_handles(), 0U);
        for (const auto& [path, node] : peer.nodes) {
            EXPECT_EQ(path.find(".part"), std::string::npos) << path;
        }
    }
    /// Every file of the batch is on the server, and nothing else; what was there goes.
    void expect_arrived(memory_batch<memory_upload>& batch)
    {
        for (const memory_upload& file : batch.files) {
            EXPECT_EQ(batch.result(file), "") << file.target();
            EXPECT_TRUE(peer.nodes[file.target()].content == file.content) << file.target();
            EXPECT_EQ(file.finishes, 1) << file.target();
        }
        expect_nothing_left();
        peer.nodes.clear();
        peer.add_folder("/");
    }

    sftp_peer peer;
    qrftp::session_options options;
    std::unique_ptr<qrftp::sftp::sftp_protocol> opened;
    int connections = 0;
};

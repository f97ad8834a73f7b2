#include <sftp/sftp_protocol.hpp>

#include <client_error.hpp>
#include <local_files.hpp>
#include <memory_files.hpp>
#include <sftp_peer.hpp>

#include <gtest/gtest.h>

using namespace qrftp;
using namespace qrftp::sftp;

TEST(SftpGivenUp, LeavesNothingWhetherCancelledOrAtTheFirstFailure)
{
    for (const bool is_cancelled : {true, false}) {
        std::stop_source stop;
        session_options options;
        options.stop = stop.get_token();
        sftp_peer peer;
        sftp_protocol server(
            [&](const session_options&, server_info&) { return std::make_unique<peer_transport>(peer); },
            "host", options);
        peer.intercept = [&](const sftp_peer::request& asked) {
            if (is_cancelled && asked.type == packet_type::write) {
                stop.request_stop();
            }
            return std::optional<std::string>();
        };
        memory_batch<memory_upload> batch;
        batch.throws = true;
        for (const std::string name : {"/a", "/b", is_cancelled ? "/c" : "/no/c", "/d"}) {
            batch.add(name, support::bytes(1'000'000));
        }
        EXPECT_EQ(support::error_of_client([&] { server.send(batch); }),
                  is_cancelled ? "Cancelled" : "NotFound");
        EXPECT_EQ(peer.open_handles(), 0U);
        for (const auto& [path, node] : peer.nodes) {
            EXPECT_FALSE(path.ends_with(".part")) << path;
        }
    }
}

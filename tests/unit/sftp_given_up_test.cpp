#include <sftp/sftp_protocol.hpp>

#include <client_error.hpp>
#include <local_files.hpp>
#include <memory_files.hpp>
#include <random_reader.hpp>
#include <sftp_peer.hpp>

#include <gmock/gmock.h>

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

TEST(SftpGivenUp, OpenFilesCloseWithoutAConnectionAndOutliveTheSession)
{
    sftp_peer peer;
    peer.nodes["/f"] = {"remote"};
    int connections = 0;
    auto server = std::make_unique<sftp_protocol>(
        [&](const session_options&, server_info&) {
            return ++connections, std::make_unique<peer_transport>(peer);
        },
        "host", session_options{.stall_timeout = std::chrono::milliseconds(20)});
    const auto kept = server->open_reader("/f");
    auto file = server->open_reader("/f");
    const std::uint64_t most = ~std::uint64_t{0};
    const std::vector<file_range> parts{{1, most}, {most, 9}};
    EXPECT_THAT(file->read(parts), testing::ElementsAre("emote", ""));
    peer.intercept = [](const sftp_peer::request&) { return std::optional<std::string>(""); };
    EXPECT_EQ(support::error_of_client([&] { server->ping(); }), "Timeout");
    file.reset();
    EXPECT_EQ(connections, 1);
    server.reset();
    EXPECT_EQ(support::error_of_client([&] { (void)kept->read(parts); }), "Closed");
}

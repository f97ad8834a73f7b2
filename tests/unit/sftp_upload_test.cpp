#include <sftp_protocol_stage.hpp>

#include <gmock/gmock.h>

using namespace qrftp;
using namespace qrftp::sftp;
using testing::ElementsAre;

using SftpUpload = SftpProtocol;

TEST_F(SftpUpload, ManyFilesAtOnceUnderTheirNames)
{
    for (const bool posix : {true, false}) {
        peer.extensions.resize(posix ? 1 : 0);
        opened.reset();
        peer.nodes["/f3"] = {"old", 0100600};
        memory_batch<memory_upload> batch;
        for (std::size_t i = 0; i < 100; ++i) {
            batch.add("/f" + std::to_string(i), support::bytes(i * 997), i % 10 != 0);
        }
        server().send(batch);
        for (const memory_upload& file : batch.files) {
            EXPECT_EQ(peer.nodes[file.target()].modified, 1000U) << file.target();
            EXPECT_EQ(file.confirmed, file.content.size());
        }
        EXPECT_EQ(peer.nodes["/f3"].mode, 0100600U);
        expect_arrived(batch);
    }
}

TEST_F(SftpUpload, CompletesThePartOrTheTarget)
{
    for (const std::string at : {"/f.part", "/f"}) {
        peer.nodes[at] = {support::bytes(40'000)};
        memory_batch<memory_upload> batch;
        batch.add("/f", support::bytes(100'000)).resume = true;
        server().send(batch);
        EXPECT_EQ(batch.files.front().confirmed, 60'000U) << at;
        expect_arrived(batch);
    }
}

TEST_F(SftpUpload, LeavesNothingOfWhatWasLonger)
{
    for (const std::size_t size : {0U, 40'000U}) {
        for (const bool temporary : {false, true}) {
            peer.nodes["/f"] = {support::bytes(200'000)};
            memory_batch<memory_upload> batch;
            batch.add("/f", support::bytes(100'000), temporary).size_after_break = size;
            (void)server();
            peer.cut_at(packet_type::close, 1, false);
            server().send(batch);
            EXPECT_EQ(peer.nodes["/f"].content.size(), size);
            expect_arrived(batch);
        }
        peer.nodes["/f"] = {support::bytes(200'000)};
        memory_batch<memory_upload> batch;
        batch.add("/f", support::bytes(size), false);
        server().send(batch);
        expect_arrived(batch);
    }
}

TEST_F(SftpUpload, ReplacesNothingByWhatIsNotWhole)
{
    peer.nodes["/f"] = {"old"};
    for (const bool resumes : {true, false}) {
        memory_batch<memory_upload> batch;
        batch.add("/f", support::bytes(100'000)).resume = resumes;
        if (resumes) {
            peer.nodes["/f.part"] = {""};
        }
        peer.intercept = [&](const sftp_peer::request& asked) -> std::optional<std::string> {
            if (asked.type == packet_type::close) {
                peer.nodes["/f.part"].content += "of somebody else";
            }
            return {};
        };
        server().send(batch);
        server().ping();
        EXPECT_EQ(batch.result(batch.files.front()), "SizeMismatch");
        EXPECT_EQ(peer.nodes["/f"].content, "old");
        expect_nothing_left();
    }
}

TEST_F(SftpUpload, OfAPrivateFileIsPrivateFromTheStart)
{
    std::vector<std::uint32_t> modes;
    peer.intercept = [&](const sftp_peer::request& asked) -> std::optional<std::string> {
        if (asked.type == packet_type::write) {
            modes.push_back(peer.nodes["/f.part"].mode);
        }
        return {};
    };
    memory_batch<memory_upload> batch;
    batch.add("/f", "secret").mode = std::filesystem::perms(0600);
    server().send(batch);
    EXPECT_THAT(modes, ElementsAre(0100600U));
    EXPECT_EQ(peer.nodes["/f"].mode, 0100600U);
}

TEST_F(SftpUpload, FailsAloneAndLeavesNothing)
{
    peer.add_folder("/folder");
    peer.nodes["/there"] = {"old"};
    peer.max_file = 60'000;
    memory_batch<memory_upload> batch;
    batch.add("/fine", support::bytes(50'000));
    batch.add("/large", support::bytes(200'000));
    batch.add("/folder", "x");
    batch.add("/no/f", "x");
    batch.add("/there", "new").replace = false;
    server().send(batch);
    std::vector<std::string> results;
    for (const memory_upload& file : batch.files) {
        results.push_back(batch.result(file));
    }
    EXPECT_THAT(results, ElementsAre("", "Refused", "IsFolder", "NotFound", "AlreadyExists"));
    EXPECT_EQ(peer.nodes["/there"].content, "old");
    EXPECT_FALSE(peer.nodes.contains("/large"));
    server().ping();
    expect_nothing_left();
}

TEST_F(SftpUpload, EndsOnceWhateverTheConnectionDoes)
{
    for (std::size_t cut = 1; cut < 90; cut += 2) {
        for (const bool carried_out : {false, true}) {
            SCOPED_TRACE(cut);
            memory_batch<memory_upload> batch;
            for (int i = 0; i < 10; ++i) {
                batch.add("/f" + std::to_string(i), support::bytes(100'000));
            }
            peer.nodes["/f0"] = {"old", 0100600};
            (void)server();
            peer.cut_after_requests(cut, carried_out);
            server().send(batch);
            server().ping();
            EXPECT_EQ(peer.nodes["/f0"].mode, 0100600U);
            expect_arrived(batch);
        }
    }
}

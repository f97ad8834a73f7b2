#include <qrftp/error.hpp>
#include <sftp/pipeline.hpp>

#include <sftp_peer.hpp>

#include <foundation/log/sink.hpp>
#include <gmock/gmock.h>
#include <zorbel/io/ftp/core/logger.hpp>

#include <algorithm>

using namespace qrftp;
using namespace qrftp::sftp;
using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;

namespace {

struct SftpPipeline : testing::Test {
    std::unique_ptr<pipeline> connect(pipeline::settings settings = {})
    {
        settings.server = "host";
        settings.stall_timeout = 20ms;
        return std::make_unique<pipeline>(std::make_unique<peer_transport>(peer), settings);
    }
    /// Answers every request with these bytes, in which the id is that of the request.
    void answer_with(std::function<std::string(std::uint32_t)> make)
    {
        peer.intercept = [make](const sftp_peer::request& asked) { return make(asked.id); };
    }
    static void wait_for(pipeline& server)
    {
        while (server.outstanding() > 0) {
            server.pump();
        }
    }

    sftp_peer peer;
};

} // namespace

TEST_F(SftpPipeline, LearnsVersionExtensionsAndLimits)
{
    peer.extensions.emplace_back("limits@openssh.com", "1");
    peer.max_read = 100'000;
    const auto server = connect();
    server->call(packet_type::realpath, ".");
    EXPECT_TRUE(server->has_extension("posix-rename@openssh.com", "1"));
    EXPECT_FALSE(server->has_extension("posix-rename@openssh.com", "2"));
    EXPECT_EQ(server->limits().read, 100'000U);
    EXPECT_EQ(server->limits().handles, 1000U);
    EXPECT_EQ(server->limits().write, 262'144U - 1024);
}

TEST_F(SftpPipeline, TakesNoLimitThatMakesRequestsWithoutNumber)
{
    peer.extensions.emplace_back("limits@openssh.com", "1");
    peer.max_read = 1;
    const auto server = connect();
    server->call(packet_type::realpath, ".");
    EXPECT_EQ(server->limits().read, 4096U);
}

TEST_F(SftpPipeline, ClosesTheConnectionOnWhatIsNoAnswer)
{
    const auto ok = [](std::uint32_t id) { return status_packet(id, status_code::ok); };
    const std::vector<std::pair<std::string, std::function<std::string(std::uint32_t)>>> rows{
        {"twice", [&](std::uint32_t id) { return ok(id) + ok(id); }},
        {"unknown id", [&](std::uint32_t id) { return ok(id + 1); }},
        {"unknown id far away", [&](std::uint32_t id) { return ok(id ^ 0xffff0000); }},
        {"another type", [](std::uint32_t id) { return data_packet(id, "x"); }},
        {"unknown type", [](std::uint32_t id) { return "\0\0\0\5\x77"s + data_packet(id, "").substr(5, 4); }},
        {"a request", [](std::uint32_t id) { return "\0\0\0\5\3"s + data_packet(id, "").substr(5, 4); }},
        {"an empty packet", [](std::uint32_t) { return std::string(4, '\0'); }},
        {"4 GiB", [](std::uint32_t) { return std::string(4, '\xff'); }},
        {"larger than the bound", [](std::uint32_t) { return "\0\4\4\1\x65"s; }},
        {"cut before the id", [](std::uint32_t) { return "\0\0\0\2\x65\0"s; }},
        {"cut within the message", [](std::uint32_t id) {
             return "\0\0\0\xd\x65"s + data_packet(id, "").substr(5, 4) + "\0\0\0\0\0\0\0\5"s;
         }}};
    for (const auto& [name, make] : rows) {
        peer.reconnect();
        peer.intercept = {};
        const auto server = connect();
        answer_with(make);
        EXPECT_THROW((server->call(packet_type::remove, "/a"), server->call(packet_type::remove, "/a")),
                     ProtocolError)
            << name;
        EXPECT_FALSE(server->is_open()) << name;
        EXPECT_THROW(server->call(packet_type::remove, "/a"), ConnectionLost) << name;
    }
}

TEST_F(SftpPipeline, RefusesAnotherVersionThan3)
{
    struct old_server : peer_transport {
        using peer_transport::peer_transport;
        std::size_t write(std::string_view bytes) override { return bytes.size(); }
    };
    for (const std::string& first :
         {"\0\0\0\5\2\0\0\0\2"s, "\0\0\0\5\2\0\0\0\6"s, status_packet(0, status_code::ok)}) {
        peer.output = first;
        EXPECT_THROW(pipeline(std::make_unique<old_server>(peer), {}), ProtocolError) << first;
    }
}

TEST_F(SftpPipeline, TakesNoStatusOkForAHandle)
{
    const auto server = connect();
    answer_with([](std::uint32_t id) { return status_packet(id, status_code::ok); });
    EXPECT_THROW(server->call(packet_type::opendir, "/"), ProtocolError);
}

TEST_F(SftpPipeline, TimesOutWhenAnAnswerNeverComes)
{
    const auto server = connect();
    answer_with([](std::uint32_t) { return ""; });
    EXPECT_THROW(server->call(packet_type::remove, "/a"), Timeout);
    EXPECT_FALSE(server->is_open());
}

TEST_F(SftpPipeline, IsCancelledAndGoesOn)
{
    std::stop_source stop;
    const auto server = connect();
    server->set_stop(stop.get_token());
    server->set_stall_timeout(1h);
    std::string late;
    peer.intercept = [&](const sftp_peer::request& asked) -> std::optional<std::string> {
        if (asked.type == packet_type::opendir) {
            stop.request_stop();
            late = handle_packet(asked.id, "late");
            return "";
        }
        return {};
    };
    EXPECT_THROW(server->call(packet_type::opendir, "/"), Cancelled);
    EXPECT_TRUE(server->is_open());
    server->set_stop({});
    peer.output += late; // of a folder that nobody wants any more
    EXPECT_TRUE(server->call(packet_type::lstat, "/").type() == packet_type::attrs);
    wait_for(*server);
    EXPECT_EQ(peer.count(packet_type::close), 1U);
}

TEST_F(SftpPipeline, TracesRequestsAndAnswersFromWhenItIsAskedTo)
{
    std::vector<std::string> lines;
    const auto server = connect();
    peer.nodes["/a b"] = {"x"};
    set_trace(trace_level::dialogue, [&](std::string_view line) { lines.emplace_back(line); });
    const file_handle file = server->call(packet_type::open, "/a b", open_flag::read, attributes{}).handle();
    server->call(packet_type::read, file, std::uint64_t{7}, std::uint32_t{1});
    server->call(request("posix-rename@openssh.com", packet_type::status), "/c", "/d");
    set_trace(trace_level::off);
    server->call(packet_type::lstat, "/");
    EXPECT_THAT(lines, ElementsAre("> OPEN /a b", "< HANDLE", "> READ at 7", "< STATUS 1 End of file",
                                   "> posix-rename@openssh.com /c /d", "< STATUS 2 No such file"));
}

TEST(Trace, GivesTheProgramsOwnLogBack)
{
    std::vector<std::string> records;
    foundation::log::set_entry_handler([&](const auto& entry) { records.emplace_back(entry.text); });
    auto& logger = zorbel::io::ftp::core::getLogger();
    logger.enable_levels(4);
    set_trace(trace_level::debug);
    set_trace(trace_level::off);
    foundation::log::record(logger, 4).stream() << "own";
    EXPECT_EQ(logger.enabled_levels(), 4U);
    EXPECT_THAT(records, ElementsAre("own"));
    logger.enable_levels(0);
    foundation::log::set_entry_handler({});
}

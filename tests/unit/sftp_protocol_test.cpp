#include <client_error.hpp>
#include <sftp_protocol_stage.hpp>

#include <gmock/gmock.h>

#include <algorithm>

using namespace qrftp;
using namespace qrftp::sftp;
using namespace std::literals;
using testing::ElementsAre;
using testing::SizeIs;

using SftpDownload = SftpProtocol;
using SftpFolders = SftpProtocol;

TEST_F(SftpProtocol, NamesOwnersOnceWhereTheServerDoes)
{
    int asked_for_names = 0;
    peer.intercept = [&](const sftp_peer::request& asked) -> std::optional<std::string> {
        packet_reader fields = asked.fields;
        if (asked.type != packet_type::extended || fields.read_string() != "users-groups-by-id@openssh.com") {
            return {};
        }
        ++asked_for_names;
        EXPECT_EQ(fields.read_string(), "\0\0\3\xe8\0\0\0\7"s); // 1000, 7
        EXPECT_EQ(fields.read_string(), "\0\0\3\xe8"s);
        return make_packet(packet_type::extended_reply, [&](packet_writer& packet) {
            packet.put(asked.id);
            packet.put("\0\0\0\2me\0\0\0\0"s);
            packet.put("\0\0\0\5staff"s);
        });
    };
    const auto named = [&] {
        std::vector<entry> entries{
            {.owner = "1000", .group = "1000"}, {.owner = "7", .group = ""}, {.owner = "ann"}};
        server().name_owners(entries);
        return entries[0].owner + ':' + entries[0].group + ' ' + entries[1].owner + ' ' + entries[2].owner;
    };
    EXPECT_EQ(named(), "1000:1000 7 ann") << "a server without the extension";
    peer.extensions.emplace_back("users-groups-by-id@openssh.com", "1");
    opened.reset();
    EXPECT_EQ(named(), "me:staff 7 ann");
    EXPECT_EQ(named(), "me:staff 7 ann");
    EXPECT_EQ(asked_for_names, 1);
}

TEST_F(SftpProtocol, FindsOutAfterABreakWhatWasCarriedOut)
{
    for (const bool carried_out : {false, true}) {
        peer.nodes["/f"] = {"x"};
        peer.nodes.erase("/g");
        peer.nodes.erase("/d");
        (void)server();
        peer.cut_at(packet_type::extended, 1, carried_out);
        server().rename("/f", "/g");
        EXPECT_TRUE(peer.nodes.contains("/g") && !peer.nodes.contains("/f")) << carried_out;
        peer.cut_at(packet_type::mkdir, 1, carried_out);
        // Whose folder it is that is there then, nobody can say.
        EXPECT_EQ(support::error_of_client([&] { server().make_folder("/d"); }),
                  carried_out ? "ConnectionLost" : "");
        EXPECT_TRUE(peer.nodes.contains("/d")) << carried_out;
        peer.cut_at(packet_type::remove, 1, carried_out);
        server().remove_file("/g");
        EXPECT_FALSE(peer.nodes.contains("/g")) << carried_out;
    }
}

TEST_F(SftpProtocol, CarriesOutManyChangesAcrossABreak)
{
    std::vector<path_change> changes;
    for (int i = 0; i < 300; ++i) {
        changes.push_back({path_change::kind::make_folder, "/d" + std::to_string(i)});
    }
    std::vector<std::size_t> ended;
    (void)server();
    peer.cut_at(packet_type::mkdir, 100, true);
    server().change(changes, [&](std::size_t index, const std::exception_ptr& why) {
        EXPECT_FALSE(why) << index;
        ended.push_back(index);
    });
    std::sort(ended.begin(), ended.end());
    EXPECT_EQ(std::unique(ended.begin(), ended.end()) - ended.begin(), 300) << "each is told of once";
    EXPECT_THAT(ended, SizeIs(300));
    EXPECT_THAT(peer.nodes, SizeIs(301));
}

TEST_F(SftpFolders, AreListedManyAtOnce)
{
    peer.names_at_once = 3;
    for (int folder = 0; folder < 60; ++folder) {
        peer.add_folder("/d" + std::to_string(folder));
        for (int file = 0; file < folder; ++file) {
            peer.nodes["/d" + std::to_string(folder) + "/f" + std::to_string(file)] = {"x"};
        }
    }
    memory_queue folders("/");
    (void)server();
    peer.cut_at(packet_type::readdir, 200, false);
    server().list(folders);
    EXPECT_EQ(folders.entries["/"].size(), 60U);
    for (int folder = 0; folder < 60; ++folder) {
        EXPECT_EQ(folders.entries["/d" + std::to_string(folder)].size(), static_cast<std::size_t>(folder));
    }
    EXPECT_EQ(connections, 2);
    EXPECT_GT(peer.most_open_handles(), 30U);
    EXPECT_EQ(peer.open_handles(), 0U);
    for (const auto& [folder, result] : folders.results) {
        EXPECT_EQ(result, "") << folder;
    }
}

TEST_F(SftpFolders, AreNotAskedForWhileAnswersAreHandled)
{
    peer.nodes["/f"] = {"x"};
    const listing_sink nested{.on_entry = [&](entry&& found) { (void)server().find('/' + found.name); }};
    EXPECT_THROW(server().list("/", nested), std::logic_error);
    server().ping();
    EXPECT_EQ(peer.open_handles(), 0U);
}

TEST_F(SftpFolders, TakeNamesAsBytesAndKindsFromTheMode)
{
    const attributes file{.permissions = 0100644};
    int answers = 0;
    peer.intercept = [&](const sftp_peer::request& asked) -> std::optional<std::string> {
        if (asked.type != packet_type::readdir || answers++ > 0) {
            return {};
        }
        return name_packet(asked.id,
                           {{".", file},
                            {"..", file},
                            {"a\ndrwxr-xr-x 2 0 0 4096 Jan  1  2024 lnk", file},
                            {"a/b", file},
                            {"", file},
                            {std::string("a\0b", 3), file},
                            {"unknown", {}},
                            {"gone", {}}},
                           "drwxr-xr-x 2 0 0 4096 Jan  1  2024 lnk");
    };
    peer.add_folder("/unknown");
    memory_queue folders("/");
    server().list(folders);
    EXPECT_THAT(folders.entries["/"],
                ElementsAre("a\ndrwxr-xr-x 2 0 0 4096 Jan  1  2024 lnk", "unknown", "unknown"));
    EXPECT_THAT(folders.left_out, ElementsAre("a/b", "", std::string("a\0b", 3)));
}

TEST_F(SftpDownload, ManyFilesAtOnce)
{
    memory_batch<memory_download> batch;
    peer.max_handles = 20;
    for (std::size_t i = 0; i < 100; ++i) {
        const std::string path = "/f" + std::to_string(i);
        peer.nodes[path] = {support::bytes(i * 997)};
        batch.add(path, i % 2 == 0 ? std::optional(i * 997) : std::nullopt);
    }
    server().fetch(batch);
    for (const memory_download& file : batch.files) {
        EXPECT_EQ(batch.result(file), "") << file.path();
        EXPECT_EQ(file.content, peer.nodes[file.path()].content) << file.path();
        EXPECT_EQ(file.finishes, 1);
    }
    EXPECT_EQ(peer.most_open_handles(), 20U) << "a refused OPEN is a smaller window";
    EXPECT_EQ(peer.open_handles(), 0U);
}

TEST_F(SftpDownload, OfALargeFileInAnyOrderAndShortAnswers)
{
    peer.nodes["/big"] = {support::bytes(9'000'000)};
    peer.max_read = 20'000;
    peer.reorder = [](auto& answers) { std::reverse(answers.begin(), answers.end()); };
    memory_batch<memory_download> batch;
    const auto& file = batch.add("/big");
    EXPECT_EQ(fetch(batch), "");
    EXPECT_TRUE(file.content == peer.nodes["/big"].content);
    EXPECT_TRUE(file.is_in_order);
    EXPECT_EQ(file.facts.size, 9'000'000U);
}

TEST_F(SftpDownload, AsksForAsMuchAsTheServerGivesFromTheFirstFileOn)
{
    peer.extensions.emplace_back("limits@openssh.com", "1");
    peer.nodes["/big"] = {support::bytes(9'000'000)};
    std::size_t reads = 0;
    peer.intercept = [&](const sftp_peer::request& asked) -> std::optional<std::string> {
        reads += asked.type == packet_type::read ? 1 : 0;
        return {};
    };
    memory_batch<memory_download> batch;
    batch.add("/big");
    EXPECT_EQ(fetch(batch), "");
    EXPECT_LT(reads, 9'000'000 / (std::size_t{32} * 1024));
}

TEST_F(SftpDownload, KeepsLittleForAReadThatIsNotAnswered)
{
    peer.nodes["/big"] = {support::bytes(24'000'000)};
    std::uint64_t sent = 0;
    peer.intercept = [&](sftp_peer::request asked) -> std::optional<std::string> {
        if (asked.type != packet_type::read) {
            return {};
        }
        (void)asked.fields.read_string();
        const bool is_late = asked.fields.read_u64() == 32'768;
        sent += is_late ? 0 : asked.fields.read_u32();
        return is_late ? std::optional(""s) : std::nullopt;
    };
    memory_batch<memory_download> batch;
    batch.add("/big");
    EXPECT_EQ(support::error_of_client([&] { server().fetch(batch); }), "Timeout");
    EXPECT_LT(sent, 20'000'000U);
}

TEST_F(SftpDownload, BelievesNoSize)
{
    peer.nodes["/f"] = {support::bytes(50'000)};
    const auto result_with = [&](std::optional<std::uint64_t> listed, std::uint64_t told) {
        peer.intercept = [told](const sftp_peer::request& asked) {
            return asked.type == packet_type::fstat
                       ? std::optional(attrs_packet(asked.id, {.size = told, .permissions = 0100644}))
                       : std::nullopt;
        };
        memory_batch<memory_download> batch;
        const auto& file = batch.add("/f", listed);
        const std::string result = fetch(batch);
        return result + ' ' + std::to_string(file.content.size());
    };
    for (const std::size_t listed : {0U, 1U, 49'999U, 50'001U, 70'000U}) {
        EXPECT_EQ(result_with(listed, 50'000), " 50000") << "listed with " << listed;
    }
    EXPECT_EQ(result_with({}, 0), " 50000") << "files that are made as they are read";
    EXPECT_EQ(result_with({}, 50'001), "SizeMismatch 50000");
    EXPECT_EQ(result_with({}, ~std::uint64_t{0}), "SizeMismatch 50000");
    EXPECT_EQ(result_with({}, 40'000), " 40000") << "it has grown since then";
}

TEST_F(SftpDownload, FailsAlone)
{
    peer.add_folder("/folder");
    for (const char* path : {"/a", "/full", "/z"}) {
        peer.nodes[path] = {support::bytes(100'000)};
    }
    memory_batch<memory_download> batch;
    batch.add("/a");
    batch.add("/none");
    batch.add("/folder", 10);
    batch.add("/full").disk = 40'000;
    batch.add("/z");
    peer.max_read = 30'000;
    server().fetch(batch);
    std::vector<std::string> results;
    for (const memory_download& file : batch.files) {
        results.push_back(batch.result(file));
    }
    EXPECT_THAT(results, ElementsAre("", "NotFound", "IsFolder", "LocalFileError", ""));
    EXPECT_EQ(peer.open_handles(), 0U);
}

TEST_F(SftpDownload, EndsOnceWhateverTheConnectionDoes)
{
    peer.nodes["/f"] = {support::bytes(100'000)};
    for (std::size_t cut = 1; cut < 60; cut += 3) {
        memory_batch<memory_download> batch;
        for (int i = 0; i < 10; ++i) {
            batch.add("/f");
        }
        (void)server();
        peer.cut_after_requests(cut);
        server().fetch(batch);
        for (const memory_download& file : batch.files) {
            EXPECT_EQ(batch.result(file), "") << cut;
            EXPECT_TRUE(file.content == peer.nodes["/f"].content) << cut;
            EXPECT_EQ(file.restarts, 0) << "it goes on where it was";
        }
    }
}

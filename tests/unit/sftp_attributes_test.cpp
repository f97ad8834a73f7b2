#include <qrftp/error.hpp>
#include <sftp/attributes.hpp>

#include <gtest/gtest.h>

using namespace qrftp;
using namespace qrftp::sftp;
using namespace std::string_literals;

namespace {

attributes decode(std::string_view bytes)
{
    packet_reader fields(bytes);
    return read_attributes(fields);
}

const attributes everything{.size = 1ULL << 40,
                            .owner = attributes::identifiers{1, 2},
                            .permissions = 0100644,
                            .time = attributes::times{3, 0xfffffffe}};

} // namespace

TEST(SftpAttributes, ComeBackAsTheyWereSent)
{
    const std::vector<attributes> rows{
        {}, {.size = 0}, {.permissions = 0755}, {.time = attributes::times{0, 1}}, everything};
    for (const attributes& sent : rows) {
        byte_queue out;
        packet_writer packet(out, packet_type::setstat);
        put(packet, sent);
        packet.finish();
        const std::string_view fields = out.bytes().substr(5);
        EXPECT_EQ(decode(fields), sent);
        for (std::size_t size = 0; size < fields.size(); ++size) {
            EXPECT_THROW(decode(fields.substr(0, size)), ProtocolError) << size;
        }
    }
}

TEST(SftpAttributes, ExtendedOnesAreSkippedAndBounded)
{
    const std::string one = "\0\0\0\1x\0\0\0\1y"s;
    EXPECT_EQ(decode("\x80\0\0\1\0\0\0\0\0\0\0\7\0\0\0\2"s + one + one).size, 7U);
    EXPECT_THROW(decode("\x80\0\0\0\xff\xff\xff\xff"s + one), ProtocolError);
    EXPECT_THROW(decode("\x80\0\0\0\0\0\0\1\0\0\0\1x\xff\xff\xff\xff"s), ProtocolError);
    EXPECT_THROW(decode("\0\0\0\x10"s), ProtocolError) << "an unknown flag";
}

TEST(SftpAttributes, MakeAnEntryWhoseKindIsThatOfTheMode)
{
    const entry made = make_entry("a\ndrwxr-xr-x 2 0 0 4096 Jan  1  2024 lnk", everything);
    EXPECT_EQ(made.name, "a\ndrwxr-xr-x 2 0 0 4096 Jan  1  2024 lnk");
    EXPECT_EQ(made.size, 1ULL << 40);
    EXPECT_EQ(made.mode, static_cast<std::filesystem::perms>(0644));
    EXPECT_EQ(made.owner + ':' + made.group, "1:2");
    ASSERT_TRUE(made.modified && made.modified->is_exact());
    EXPECT_EQ(made.modified->time.time_since_epoch().count(), 0xfffffffe);
    const std::pair<std::uint32_t, entry_kind> rows[] = {
        {0100644, entry_kind::file},  {0042775, entry_kind::folder}, {0120777, entry_kind::link},
        {0010600, entry_kind::other}, {0140600, entry_kind::other},  {0644, entry_kind::other}};
    for (const auto& [mode, kind] : rows) {
        EXPECT_EQ(make_entry("f", {.size = 5, .permissions = mode}).kind, kind) << mode;
        EXPECT_EQ(kind_of({.permissions = mode}).has_value(), mode != 0644) << mode;
    }
    EXPECT_EQ(make_entry("f", {.size = 4096, .permissions = 0042775}).size, std::nullopt);
}

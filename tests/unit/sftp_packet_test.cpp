#include <qrftp/error.hpp>
#include <sftp/packet.hpp>
#include <sftp/reply.hpp>

#include <sftp_peer.hpp>

#include <gtest/gtest.h>

using namespace qrftp;
using namespace qrftp::sftp;
using namespace std::string_literals;

namespace {

/// The fields of an answer, as its handler gets them.
reply parse(const std::string& packet)
{
    packet_reader fields{std::string_view(packet).substr(4)};
    const auto type = static_cast<packet_type>(fields.read_u8());
    fields.read_u32();
    return {type, fields};
}

} // namespace

TEST(SftpPacket, ThatIsNotFinishedLeavesNothing)
{
    byte_queue out;
    out.append("before");
    {
        packet_writer packet(out, packet_type::write);
        packet.put(std::string(100'000, 'x'));
    }
    EXPECT_EQ(out.bytes(), "before");
}

TEST(SftpPacket, StringsAreBounded)
{
    EXPECT_EQ(parse(handle_packet(1, std::string(256, 'h'))).handle().bytes.size(), 256U);
    EXPECT_THROW((void)parse(handle_packet(1, std::string(257, 'h'))).handle(), ProtocolError);
    EXPECT_EQ(parse(data_packet(1, std::string(max_data, 'd'))).data().size(), max_data);
    EXPECT_THROW((void)parse(data_packet(1, std::string(max_data + 1, 'd'))).data(), ProtocolError);
    EXPECT_EQ(parse(name_packet(1, {{std::string(max_name, 'n'), {}}})).single_name().size(), max_name);
    EXPECT_THROW((void)parse(name_packet(1, {{std::string(max_name + 1, 'n'), {}}})).single_name(),
                 ProtocolError);
}

TEST(SftpPacket, NamesAreAsManyAsItSays)
{
    std::string packet = name_packet(1, {{"a", {}}, {"b", {}}}, "-rw-r--r-- 1 0 0 4096 Jan  1  2024 lnk");
    name_reader names(parse(packet).body());
    EXPECT_EQ(names.next().name, "a");
    EXPECT_EQ(names.next().name, "b");
    EXPECT_EQ(names.remaining(), 0U);
    EXPECT_THROW((void)parse(packet).single_name(), ProtocolError);
    packet[9] = '\x7f'; // the count: 2 billion
    EXPECT_THROW(name_reader(parse(packet).body()), ProtocolError);
}

TEST(SftpPacket, StatusIsAnErrorByItsType)
{
    const std::string_view errors[] = {"none",         "Refused", "NotFound",       "PermissionDenied",
                                       "Refused",      "Refused", "ConnectionLost", "ConnectionLost",
                                       "NotSupported", "Refused"};
    for (std::uint32_t code = 0; code < std::size(errors); ++code) {
        std::string_view thrown = "none";
        try {
            parse(status_packet(1, static_cast<status_code>(code), "why")).check("/file");
        } catch (const error& failure) {
            thrown = failure.name();
            EXPECT_EQ(failure.path() + failure.server_message(), "/filewhy");
            EXPECT_EQ(failure.reply_code(), code);
        }
        EXPECT_EQ(thrown, errors[code]) << code;
    }
    EXPECT_TRUE(parse("\0\0\0\x9\x65\0\0\0\1\0\0\0\2"s).is_status(status_code::no_such_file))
        << "without message";
}

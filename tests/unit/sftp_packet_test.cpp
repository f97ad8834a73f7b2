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

TEST(SftpPacket, HoldsFieldsInNetworkOrderAndItsLength)
{
    byte_queue out;
    packet_writer packet(out, packet_type::read);
    packet.put(std::uint32_t{0x01020304});
    packet.put("h\0"s);
    packet.put(std::uint64_t{0x1122334455667788});
    packet.finish();
    EXPECT_EQ(out.bytes(), "\0\0\0\x13\5\1\2\3\4\0\0\0\2h\0\x11\x22\x33\x44\x55\x66\x77\x88"s);
}

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

TEST(SftpPacket, FieldsEndWithThePacket)
{
    const std::string whole = "\x2a\0\0\0\1\0\0\0\0\0\0\0\2\0\0\0\1x"s;
    const auto read_all = [](std::string_view bytes) {
        packet_reader fields(bytes);
        fields.read_u8();
        fields.read_u32();
        fields.read_u64();
        return std::string(fields.read_string());
    };
    EXPECT_EQ(read_all(whole), "x");
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(read_all(std::string_view(whole).substr(0, size)), ProtocolError) << size;
    }
    EXPECT_THROW(packet_reader("\xff\xff\xff\xff" + whole).read_string(), ProtocolError) << "4 GiB";
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
    const auto thrown_for = [](std::uint32_t code) -> std::string {
        const std::string packet = status_packet(1, static_cast<status_code>(code), "why");
        try {
            parse(packet).check("/file");
        } catch (const error& failure) {
            EXPECT_EQ(failure.path(), "/file");
            EXPECT_EQ(failure.reply_code(), code);
            EXPECT_EQ(failure.server_message(), "why");
            return std::string(failure.name());
        }
        return "none";
    };
    const std::vector<std::string> errors{"none",         "Refused", "NotFound",       "PermissionDenied",
                                          "Refused",      "Refused", "ConnectionLost", "ConnectionLost",
                                          "NotSupported", "Refused"};
    for (std::uint32_t code = 0; code < errors.size(); ++code) {
        EXPECT_EQ(thrown_for(code), errors[code]) << code;
    }
    EXPECT_TRUE(parse("\0\0\0\x9\x65\0\0\0\1\0\0\0\2"s).is_status(status_code::no_such_file))
        << "without message";
}

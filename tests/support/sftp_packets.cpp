#include "sftp_packets.hpp"

using namespace qrftp::sftp;

namespace {

/// The id, and one field.
std::string make_answer(packet_type type, std::uint32_t id, std::string_view field)
{
    return make_packet(type, [&](packet_writer& packet) {
        packet.put(id);
        packet.put(field);
    });
}

} // namespace

std::string make_packet(packet_type type, const std::function<void(packet_writer&)>& add_fields)
{
    byte_queue out;
    packet_writer packet(out, type);
    add_fields(packet);
    packet.finish();
    return std::string(out.bytes());
}

std::string status_packet(std::uint32_t id, status_code code, std::string_view message)
{
    return make_packet(packet_type::status, [&](packet_writer& packet) {
        packet.put(id);
        packet.put(static_cast<std::uint32_t>(code));
        packet.put(message);
        packet.put("en");
    });
}

std::string handle_packet(std::uint32_t id, std::string_view handle)
{
    return make_answer(packet_type::handle, id, handle);
}

std::string data_packet(std::uint32_t id, std::string_view data)
{
    return make_answer(packet_type::data, id, data);
}

std::string attrs_packet(std::uint32_t id, const attributes& values)
{
    return make_packet(packet_type::attrs, [&](packet_writer& packet) {
        packet.put(id);
        put(packet, values);
    });
}

std::string name_packet(std::uint32_t id, const std::vector<std::pair<std::string, attributes>>& names,
                        std::string_view long_name)
{
    return make_packet(packet_type::name, [&](packet_writer& packet) {
        packet.put(id);
        packet.put(static_cast<std::uint32_t>(names.size()));
        for (const auto& [name, values] : names) {
            packet.put(name);
            packet.put(long_name);
            put(packet, values);
        }
    });
}

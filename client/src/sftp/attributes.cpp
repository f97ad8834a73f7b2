#include "attributes.hpp"

#include <string>

namespace qrftp::sftp {

namespace {

constexpr std::uint32_t has_size = 0x01;
constexpr std::uint32_t has_owner = 0x02;
constexpr std::uint32_t has_permissions = 0x04;
constexpr std::uint32_t has_times = 0x08;
constexpr std::uint32_t has_extended = 0x80000000;
constexpr std::uint32_t known_flags = has_size | has_owner | has_permissions | has_times | has_extended;

/// The type bits of a mode. They are POSIX's values on the wire, whatever the local system has.
constexpr std::uint32_t type_mask = 0170000;
constexpr std::uint32_t type_file = 0100000;
constexpr std::uint32_t type_folder = 0040000;
constexpr std::uint32_t type_link = 0120000;

std::uint32_t flags_of(const attributes& values) noexcept
{
    return (values.size ? has_size : 0) | (values.owner ? has_owner : 0) |
           (values.permissions ? has_permissions : 0) | (values.time ? has_times : 0);
}

/// Each takes eight bytes at least, so that a forged count ends with the packet.
void skip_extended(packet_reader& packet)
{
    for (std::uint32_t count = packet.read_u32(); count > 0; --count) {
        packet.read_string();
        packet.read_string();
    }
}

} // namespace

void put(packet_writer& packet, const attributes& values)
{
    packet.put(flags_of(values));
    if (values.size) {
        packet.put(*values.size);
    }
    if (values.owner) {
        packet.put(values.owner->user);
        packet.put(values.owner->group);
    }
    if (values.permissions) {
        packet.put(*values.permissions);
    }
    if (values.time) {
        packet.put(values.time->accessed);
        packet.put(values.time->modified);
    }
}

attributes read_attributes(packet_reader& packet)
{
    attributes values;
    const std::uint32_t flags = packet.read_u32();
    if ((flags & ~known_flags) != 0) {
        throw_malformed("attributes have a flag that version 3 does not know");
    }
    if ((flags & has_size) != 0) {
        values.size = packet.read_u64();
    }
    if ((flags & has_owner) != 0) {
        const std::uint32_t user = packet.read_u32();
        values.owner = {user, packet.read_u32()};
    }
    if ((flags & has_permissions) != 0) {
        values.permissions = packet.read_u32();
    }
    if ((flags & has_times) != 0) {
        const std::uint32_t accessed = packet.read_u32();
        values.time = {accessed, packet.read_u32()};
    }
    if ((flags & has_extended) != 0) {
        skip_extended(packet);
    }
    return values;
}

std::optional<entry_kind> kind_of(const attributes& values) noexcept
{
    switch (values.permissions.value_or(0) & type_mask) {
    case 0:
        return {};
    case type_file:
        return entry_kind::file;
    case type_folder:
        return entry_kind::folder;
    case type_link:
        return entry_kind::link;
    default:
        return entry_kind::other;
    }
}

entry make_entry(std::string_view name, const attributes& values)
{
    entry made;
    made.name = name;
    made.kind = kind_of(values).value_or(entry_kind::other);
    if (made.kind == entry_kind::file) {
        made.size = values.size;
    }
    if (values.time) {
        made.modified = timestamp{std::chrono::sys_seconds(std::chrono::seconds(values.time->modified))};
    }
    if (values.permissions) {
        made.mode = static_cast<std::filesystem::perms>(*values.permissions & 07777);
    }
    if (values.owner) {
        made.owner = std::to_string(values.owner->user);
        made.group = std::to_string(values.owner->group);
    }
    return made;
}

} // namespace qrftp::sftp

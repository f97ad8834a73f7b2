// Answers of an SFTP server: the first byte is the packet's type, the rest what follows the id.
#include "fuzz.hpp"

#include <qrftp/error.hpp>
#include <sftp/reply.hpp>

using namespace qrftp::sftp;

static void fuzz_attributes(std::string_view input)
{
    packet_reader fields(input);
    const attributes read = read_attributes(fields);
    byte_queue out;
    packet_writer packet(out, packet_type::attrs);
    put(packet, read);
    packet.finish();
    packet_reader again(out.bytes().substr(5));
    require(read_attributes(again) == read && again.at_end());
    const qrftp::entry made = make_entry("name", read);
    require(made.kind == kind_of(read).value_or(qrftp::entry_kind::other));
    require(!made.size || made.kind == qrftp::entry_kind::file);
}

static void fuzz_names(std::string_view input)
{
    name_reader names{packet_reader(input)};
    require(names.remaining() <= input.size() / 12);
    while (names.remaining() > 0) {
        require(names.next().name.size() <= max_name);
    }
}

static void fuzz(std::string_view input)
{
    if (input.empty()) {
        return;
    }
    const auto type = static_cast<packet_type>(input[0]);
    input.remove_prefix(1);
    try {
        const reply answer(type, packet_reader(input));
        switch (type) {
        case packet_type::status:
            return answer.check("subject");
        case packet_type::handle:
            return require(answer.handle().bytes.size() <= max_handle);
        case packet_type::data:
            return require(answer.data().size() <= input.size());
        case packet_type::name:
            return fuzz_names(input);
        default:
            return fuzz_attributes(input);
        }
    } catch (const qrftp::error& failure) {
        require(failure.cause() == qrftp::error_cause::protocol_error || type == packet_type::status);
    }
}

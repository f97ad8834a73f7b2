#include "reply.hpp"

namespace qrftp::sftp {

reply::reply(packet_type type, packet_reader body) : type_(type), body_(body)
{
    if (!is_status()) {
        return;
    }
    code_ = static_cast<status_code>(body.read_u32());
    if (!body.at_end()) { // some old servers send the code alone
        message_ = body.read_string();
    }
}

void reply::check(const std::string& subject) const
{
    if (is_failure()) {
        throw_status(subject, code_, message_);
    }
}

file_handle reply::handle() const
{
    packet_reader fields = body_;
    return {std::string(fields.read_string(max_handle))};
}

std::string_view reply::data() const
{
    packet_reader fields = body_;
    return fields.read_string(max_data);
}

attributes reply::attrs() const
{
    packet_reader fields = body_;
    return read_attributes(fields);
}

std::string reply::single_name() const
{
    name_reader names(body_);
    if (names.remaining() != 1) {
        throw_malformed("an answer holds several names, or none, where one was asked for");
    }
    return std::string(names.next().name);
}

void throw_status(const std::string& subject, status_code code, std::string_view message)
{
    response said{static_cast<long>(code), std::string(message)};
    switch (code) {
    case status_code::no_such_file:
        throw NotFound(subject, std::move(said));
    case status_code::permission_denied:
        throw PermissionDenied(subject, std::move(said));
    case status_code::op_unsupported:
        throw NotSupported(subject, std::move(said));
    case status_code::no_connection:
    case status_code::connection_lost:
        throw ConnectionLost(subject, std::move(said));
    default:
        throw Refused(subject, std::move(said));
    }
}

name_reader::name_reader(packet_reader body) : body_(body), remaining_(body_.read_u32())
{
    constexpr std::size_t smallest = 12; // two empty strings and no attributes
    if (remaining_ > body_.rest().size() / smallest) {
        throw_malformed("an answer holds fewer names than it says");
    }
}

name_and_attributes name_reader::next()
{
    name_and_attributes read;
    read.name = body_.read_string(max_name);
    body_.read_string(); // the long name
    read.values = read_attributes(body_);
    --remaining_;
    return read;
}

} // namespace qrftp::sftp

#include "packet.hpp"

#include <qrftp/error.hpp>

#include <array>
#include <string>

namespace qrftp::sftp {

namespace {

/// The `size` low bytes of `value`, the highest first.
template <std::size_t size>
std::array<char, size> big_endian(std::uint64_t value) noexcept
{
    std::array<char, size> bytes{};
    for (std::size_t i = size; i-- > 0; value >>= 8) {
        bytes[i] = static_cast<char>(value & 0xff);
    }
    return bytes;
}

template <std::size_t size>
std::string_view view(const std::array<char, size>& bytes) noexcept
{
    return {bytes.data(), bytes.size()};
}

} // namespace

std::string_view name_of(packet_type type) noexcept
{
    static constexpr std::array<std::string_view, 21> requests{
        "",      "INIT",  "VERSION",  "OPEN",     "CLOSE",   "READ",     "WRITE",
        "LSTAT", "FSTAT", "SETSTAT",  "FSETSTAT", "OPENDIR", "READDIR",  "REMOVE",
        "MKDIR", "RMDIR", "REALPATH", "STAT",     "RENAME",  "READLINK", "SYMLINK"};
    static constexpr std::array<std::string_view, 5> answers{"STATUS", "HANDLE", "DATA", "NAME", "ATTRS"};
    const auto number = static_cast<std::size_t>(type);
    if (number < requests.size()) {
        return requests[number];
    }
    if (number > 100 && number <= 100 + answers.size()) {
        return answers[number - 101];
    }
    return type == packet_type::extended         ? "EXTENDED"
           : type == packet_type::extended_reply ? "EXTENDED_REPLY"
                                                 : "";
}

void throw_malformed(std::string_view reason)
{
    throw ProtocolError("SFTP", std::string(reason));
}

packet_writer::packet_writer(byte_queue& out, packet_type type) : out_(out), begin_(out.size())
{
    out_.prepare(64); // most requests fit: nothing below allocates for them
    put(std::uint32_t{0});
    put(static_cast<std::uint8_t>(type));
}

packet_writer::~packet_writer()
{
    if (!finished_) {
        out_.truncate(begin_);
    }
}

void packet_writer::put(std::uint8_t value)
{
    out_.append(view(big_endian<1>(value)));
}

void packet_writer::put(std::uint32_t value)
{
    out_.append(view(big_endian<4>(value)));
}

void packet_writer::put(std::uint64_t value)
{
    out_.append(view(big_endian<8>(value)));
}

void packet_writer::put(std::string_view value)
{
    put(static_cast<std::uint32_t>(value.size()));
    out_.append(value);
}

void packet_writer::finish() noexcept
{
    overwrite(begin_, static_cast<std::uint32_t>(out_.size() - begin_ - 4));
    finished_ = true;
}

void packet_writer::overwrite(std::size_t at, std::uint32_t value) noexcept
{
    out_.overwrite(at, view(big_endian<4>(value)));
}

std::string_view packet_reader::read_string(std::size_t max)
{
    const std::uint32_t size = read_u32();
    if (size > max) {
        throw_malformed("a string is longer than any server may send");
    }
    return take(size);
}

std::uint64_t packet_reader::read_integer(std::size_t size)
{
    std::uint64_t value = 0;
    for (const char byte : take(size)) {
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

std::string_view packet_reader::take(std::size_t size)
{
    if (size > rest_.size()) {
        throw_malformed("a packet ends within a field");
    }
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
}

} // namespace qrftp::sftp

#pragma once

#include "byte_queue.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The packets of SFTP version 3 (draft-ietf-secsh-filexfer-02).
namespace qrftp::sftp {

inline constexpr std::uint32_t protocol_version = 3;

enum class packet_type : std::uint8_t {
    init = 1,
    version = 2,
    open = 3,
    close = 4,
    read = 5,
    write = 6,
    lstat = 7,
    fstat = 8,
    setstat = 9,
    fsetstat = 10,
    opendir = 11,
    readdir = 12,
    remove = 13,
    mkdir = 14,
    rmdir = 15,
    realpath = 16,
    stat = 17,
    rename = 18,
    readlink = 19,
    symlink = 20,
    status = 101,
    handle = 102,
    data = 103,
    name = 104,
    attrs = 105,
    extended = 200,
    extended_reply = 201,
};

/// "OPEN" and so on; empty for what is not a packet of version 3.
[[nodiscard]] std::string_view name_of(packet_type type) noexcept;

enum class status_code : std::uint32_t {
    ok = 0,
    eof = 1,
    no_such_file = 2,
    permission_denied = 3,
    failure = 4,
    bad_message = 5,
    no_connection = 6,
    connection_lost = 7,
    op_unsupported = 8,
};

/// The flags of OPEN.
namespace open_flag {
inline constexpr std::uint32_t read = 0x01;
inline constexpr std::uint32_t write = 0x02;
inline constexpr std::uint32_t append = 0x04;
inline constexpr std::uint32_t create = 0x08;
inline constexpr std::uint32_t truncate = 0x10;
inline constexpr std::uint32_t exclusive = 0x20;
} // namespace open_flag

/// What a packet may hold at most. A server that sends more does not keep to the protocol.
inline constexpr std::size_t max_data = std::size_t{256} * 1024;
/// Every server takes 32 KiB. Where one says less than this, the requests would be too many.
inline constexpr std::uint64_t least_data = std::uint64_t{4} * 1024;
inline constexpr std::size_t max_packet = max_data + 1024; ///< without its length field
inline constexpr std::size_t max_handle = 256;
inline constexpr std::size_t max_name = std::size_t{64} * 1024;

/// Throws `ProtocolError`.
[[noreturn]] void throw_malformed(std::string_view reason);

/// Encodes one packet at the end of a queue. Unless `finish` is called, the queue is left as it was.
class packet_writer {
public:
    packet_writer(byte_queue& out, packet_type type);
    packet_writer(const packet_writer&) = delete;
    packet_writer& operator=(const packet_writer&) = delete;
    ~packet_writer();

    void put(std::uint8_t value);
    void put(std::uint32_t value);
    void put(std::uint64_t value);
    /// A string with its length before it.
    void put(std::string_view value);
    void put(const char* value) { put(std::string_view(value)); }

    /// A string of at most `size` bytes that `fill`, given a `std::span<char>`, puts where it is sent from; it
    /// returns how many bytes that were, as this does.
    template <class Fill>
    std::size_t put_from(std::size_t size, const Fill& fill)
    {
        const std::size_t length_at = out_.size();
        put(std::uint32_t{0});
        const std::size_t filled = fill(out_.prepare(size).first(size));
        out_.commit(filled);
        overwrite(length_at, static_cast<std::uint32_t>(filled));
        return filled;
    }

    /// Writes the packet's length, which makes it whole.
    void finish() noexcept;

private:
    void overwrite(std::size_t at, std::uint32_t value) noexcept;

    byte_queue& out_;
    std::size_t begin_;
    bool finished_ = false;
};

/// Decodes the fields of one packet, each of which is checked against the packet's end: `ProtocolError` is
/// thrown for what is not there. Strings are views of the packet.
class packet_reader {
public:
    packet_reader() = default;
    explicit packet_reader(std::string_view bytes) noexcept : rest_(bytes) {}

    std::uint8_t read_u8() { return static_cast<std::uint8_t>(read_integer(1)); }
    std::uint32_t read_u32() { return static_cast<std::uint32_t>(read_integer(4)); }
    std::uint64_t read_u64() { return read_integer(8); }
    /// Longer strings than `max` are refused too.
    std::string_view read_string(std::size_t max = max_packet);

    [[nodiscard]] bool at_end() const noexcept { return rest_.empty(); }
    /// What has not been read yet.
    [[nodiscard]] std::string_view rest() const noexcept { return rest_; }

private:
    std::uint64_t read_integer(std::size_t size);
    std::string_view take(std::size_t size);

    std::string_view rest_{};
};

} // namespace qrftp::sftp

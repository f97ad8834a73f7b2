#pragma once

#include "attributes.hpp"
#include "packet.hpp"

#include <qrftp/error.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace qrftp::sftp {

/// A handle that the server gave for an open file or folder. Its bytes are the server's own.
struct file_handle {
    std::string bytes{};
};

/// One answer of the server. What it gives are views of the packet: they live until the pipeline reads on.
class reply {
public:
    reply() = default;
    /// `body` is what follows the id. Throws `ProtocolError` for a STATUS that is cut.
    reply(packet_type type, packet_reader body);

    [[nodiscard]] packet_type type() const noexcept { return type_; }
    [[nodiscard]] bool is_status() const noexcept { return type_ == packet_type::status; }
    [[nodiscard]] bool is_status(status_code code) const noexcept { return is_status() && code_ == code; }
    [[nodiscard]] bool is_failure() const noexcept { return is_status() && code_ != status_code::ok; }
    [[nodiscard]] status_code code() const noexcept { return code_; }
    [[nodiscard]] std::string_view message() const noexcept { return message_; }

    /// Throws what the status means for `subject`, if it is one that refuses.
    void check(const std::string& subject) const;

    /// The fields of an answer of that type; each throws `ProtocolError` for what is malformed.
    [[nodiscard]] packet_reader body() const noexcept { return body_; }
    [[nodiscard]] file_handle handle() const;
    [[nodiscard]] std::string_view data() const;
    [[nodiscard]] attributes attrs() const;
    /// The one name of an answer to REALPATH or READLINK.
    [[nodiscard]] std::string single_name() const;

private:
    packet_type type_ = packet_type::status;
    status_code code_ = status_code::ok;
    std::string_view message_{};
    packet_reader body_{};
};

/// Throws the error of the class that `code` stands for; `Refused` where only the server's words tell more.
[[noreturn]] void throw_status(const std::string& subject, status_code code, std::string_view message);

/// One name of a NAME packet. The long name, made for people's eyes, is skipped.
struct name_and_attributes {
    std::string_view name{};
    attributes values{};
};

/// The names of a NAME packet, in order. Throws `ProtocolError` if the packet cannot hold as many as it says.
class name_reader {
public:
    explicit name_reader(packet_reader body);
    [[nodiscard]] std::uint32_t remaining() const noexcept { return remaining_; }
    /// To be called as often as `remaining` says.
    name_and_attributes next();

private:
    packet_reader body_;
    std::uint32_t remaining_;
};

} // namespace qrftp::sftp

#pragma once

#include "../protocol.hpp"
#include "reply.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::ftp {

/// What goes to the server in one upload.
struct upload_source {
    /// Fills the beginning of the buffer with the bytes from `offset` on; 0 at the end.
    std::function<std::size_t(std::uint64_t offset, std::span<char> buffer)> read;
    std::function<void(std::uint64_t position)> on_sent; ///< up to where in the file libcurl has sent it
    std::optional<std::uint64_t> size{};                 ///< of the file as a whole
};

/// One request of libcurl's. Everything in it goes by absolute names, so that it means the same whatever folder
/// the server believes the connection to be in.
struct request {
    std::string subject;                 ///< what errors name
    std::string path = "/";              ///< with a final "/" for a folder
    std::vector<std::string> commands{}; ///< before the transfer; a refusal of one is for the caller to see
    std::vector<std::string> last_commands{}; ///< after it
    const char* list_command = nullptr;
    bool change_directory = false; ///< goes into the folder first and lists it without a name
    /// The body begins; told are the size and the time, where the request asked for them.
    std::function<void(const file_facts& source)> on_begin{};
    std::function<void(std::string_view)> on_data{}; ///< wants the body
    std::function<void()> on_tick{};                 ///< called while the request runs, every second at least
    const upload_source* source = nullptr;           ///< sends a body
    byte_range range{};                              ///< of the file; an upload begins at its beginning
    bool want_size = false;                          ///< asks for the size before a body is fetched
    bool want_time = false;                          ///< asks for the modification time as well
    std::optional<std::uint64_t> expected_size{};    ///< a body of this size is taken to be whole
    bool cancellable = true;                         ///< ends when the options' stop token asks for it
    bool repeatable = true;                          ///< may be repeated although it may have been carried out
    bool needs_same_connection = false; ///< means nothing on a new connection: it is never repeated
    /// Called before a repeat: forgets what was taken, and says whether it could. Without it, a body of which
    /// something was taken is not asked for again.
    std::function<bool()> restart{};
};

/// How a request went that reached the server.
struct request_result {
    int code = 0; ///< libcurl's
    std::vector<reply> replies{};
    std::string message{};   ///< libcurl's
    std::uint64_t moved = 0; ///< bytes of the body, in either direction
    file_facts source{};     ///< as the server told it before the body
    long proxy_status = 0;   ///< of the proxy's answer to CONNECT
    bool encrypted = false;
    bool ended_by_close_notify = false; ///< TLS: the data connection was ended, not just cut off
    bool reconnected = false;           ///< the request opened a connection

    [[nodiscard]] bool is_done() const { return code == 0; }
    /// The reply to the command that stands `from_last` before the last one.
    [[nodiscard]] const reply& last_reply(std::size_t from_last = 0) const;
    /// For errors: the server's refusal, else libcurl's words.
    [[nodiscard]] response said() const;
};

} // namespace qrftp::ftp

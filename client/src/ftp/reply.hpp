#pragma once

#include <qrftp/error.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::ftp {

/// Reply codes that mean something to the client (RFC 959, 4.2).
namespace code {
inline constexpr long file_status = 213;
inline constexpr long security_accepted = 234; ///< TLS begins (RFC 2228, 5.1)
inline constexpr long pending_further_information = 350;
inline constexpr long service_not_available = 421; ///< the server closes the control connection
inline constexpr long cannot_open_data_connection = 425;
inline constexpr long connection_closed = 426;
inline constexpr long insufficient_storage = 452;
inline constexpr long bad_arguments = 501;         ///< of a command that is known
inline constexpr long file_unavailable = 550;      ///< not there, or not allowed
inline constexpr long exceeded_storage = 552;      ///< of the user's share
inline constexpr long file_name_not_allowed = 553; ///< also when something else has the name
} // namespace code

/// One reply of the control connection, all its lines without their ends (RFC 959, 4.2).
struct reply {
    long code = 0;
    std::vector<std::string> lines;

    /// Codes from 200 to 299.
    [[nodiscard]] bool is_completion() const { return code >= 200 && code < 300; }
    /// The server does not know the command, or not with these arguments.
    [[nodiscard]] bool is_unknown_command() const { return code >= 500 && code <= 504; }
    /// What follows the code in the last line.
    [[nodiscard]] std::string_view text() const;
    /// For errors.
    [[nodiscard]] response said() const;
};

/// Reads replies as their lines come.
class reply_reader {
public:
    /// Takes whole lines.
    void add(std::string_view text);
    void clear() { *this = {}; }
    [[nodiscard]] const std::vector<reply>& replies() const { return replies_; }
    /// Whether the last reply has lines to come.
    [[nodiscard]] bool is_open() const { return is_open_; }

private:
    std::vector<reply> replies_;
    bool is_open_ = false;
};

/// The replies in what a control connection brought.
std::vector<reply> parse_replies(std::string_view text);

/// The size in the answer to SIZE. What is no number of bytes, or one that no file has, is none.
std::optional<std::uint64_t> parse_size(const reply& answer);

/// The time in the answer to MDTM, to the second.
std::optional<std::chrono::sys_seconds> parse_time(const reply& answer);

} // namespace qrftp::ftp

#pragma once

#include "../protocol.hpp"
#include "reply.hpp"

#include <functional>
#include <optional>
#include <string>

namespace qrftp::ftp {

/// Gives remote files their modification times and permissions, by the commands that the server has for it.
class fact_setter {
public:
    using sender = std::function<reply(const std::string& path, const std::string& command)>;
    using warning = std::function<void(const std::string& sentence)>;

    /// `server` is how the warning that it keeps no times names it.
    fact_setter(const server_info& info, std::string server, sender send, warning warn);

    /// What the server cannot keep is no error; that it keeps no times is told once.
    void set(const std::string& path, const file_facts& facts);
    /// The server's answer; nothing where it has no command for it.
    std::optional<reply> set_time(const std::string& path, std::chrono::sys_seconds time);
    std::optional<reply> set_mode(const std::string& path, std::filesystem::perms mode);

private:
    std::string server_;
    sender send_;
    warning warn_;
    bool has_mfmt_;          ///< draft-somers-ftp-mfxx, 3.1
    bool has_mode_fact_;     ///< MFF takes UNIX.mode
    bool tries_mdtm_ = true; ///< MDTM with a time in front of the name
    bool mdtm_works_ = false;
    bool tries_chmod_ = true;
};

/// Whether one of the server's features is called `name`, in letters of either case.
bool has_feature(const server_info& info, std::string_view name);

} // namespace qrftp::ftp

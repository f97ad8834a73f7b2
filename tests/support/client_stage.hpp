#pragma once

#include "client_error.hpp"
#include "local_files.hpp"
#include "scripted_peer.hpp"
#include "sftp_server.hpp"

#include <qrftp/client.hpp>

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// The names of a listing's entries.
std::vector<std::string> names_in(const qrftp::listing& all);

/// One of scripted_peer::on().
struct rule {
    std::string line;
    answer what;
    int nth = 0;
};

/// A scripted FTP peer with the login folder "/home/u" and the files "f" and "t" in it, or an SFTP server with
/// nothing; a client for it; and a local folder with "f" and a file "long".
class client_stage {
public:
    explicit client_stage(const std::vector<rule>& rules = {},
                          qrftp::url_scheme scheme = qrftp::url_scheme::ftp);
    client_stage(const client_stage&) = delete;

    qrftp::session& open();

    /// The lines that were sent, or those of `verbs` alone, joined by "|". The login folder is "~", and
    /// temporary names are "T1", "T2", … in the order in which they appear.
    [[nodiscard]] std::string sent(std::initializer_list<std::string_view> verbs = {}) const;

    /// From now on the server keeps these files. Whether renaming replaces one is the server's to decide.
    void keep(const files& all, bool replaces = true);
    [[nodiscard]] files kept() const { return sftp ? sftp->kept() : peer.kept(); }
    /// The server refuses to list the folder, or to send the file.
    void refuse(const std::string& path);
    /// The connection goes at the nth request from now on: before that is carried out, or before its answer is
    /// sent. Whether the server is back at once, or not any more.
    void cut_at(int request, bool carried_out, bool is_back);
    [[nodiscard]] bool was_cut() const
    {
        return sftp ? sftp->cuts() > 0 : cut_step_ && peer.steps() > *cut_step_;
    }

    scripted_peer peer{};
    std::optional<sftp_server> sftp{};
    temporary_folder local{};
    qrftp::session_options options{};
    std::optional<qrftp::session> client{};

private:
    std::optional<int> cut_step_{}; ///< of the FTP peer
};

} // namespace support

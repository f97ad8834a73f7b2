#pragma once

#include "client_error.hpp"
#include "local_files.hpp"
#include "scripted_peer.hpp"

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

/// A scripted peer with the login folder "/home/u" and the files "f" and "t" in it, a client for it, and a
/// local folder with "f" and a file "long".
class client_stage {
public:
    explicit client_stage(const std::vector<rule>& rules = {});
    client_stage(const client_stage&) = delete;
    ~client_stage();

    qrftp::session& open();

    /// The lines that were sent, or those of `verbs` alone, joined by "|". The login folder is "~", and
    /// temporary names are "T1", "T2", … in the order in which they appear.
    [[nodiscard]] std::string sent(std::initializer_list<std::string_view> verbs = {}) const;

    scripted_peer peer{};
    std::filesystem::path local;
    qrftp::session_options options{};
    std::optional<qrftp::session> client{};
};

} // namespace support

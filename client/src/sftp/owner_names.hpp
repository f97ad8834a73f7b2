#pragma once

#include "pipeline.hpp"

#include <qrftp/entry.hpp>

#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>

namespace qrftp::sftp {

/// The names of the users and groups whose numbers entries have (users-groups-by-id@openssh.com). Each number
/// is asked for once.
class owner_names {
public:
    /// Puts names in the place of numbers, as far as the server has them. Throws `ProtocolError`, and what
    /// `pipeline::call` throws.
    void fill_in(pipeline& server, std::span<entry> entries);

private:
    using name_map =
        std::map<std::string, std::string, std::less<>>; ///< by number; itself where it has no name

    void ask(pipeline& server, const std::set<std::string>& users, const std::set<std::string>& groups);

    name_map users_{};
    name_map groups_{};
};

} // namespace qrftp::sftp

#pragma once

#include <qrftp/session.hpp>

#include <exception>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

namespace qrftp {

struct walk_options {
    /// How many levels below the folder are looked at; 1 is its own entries.
    unsigned max_depth = std::numeric_limits<unsigned>::max();
    /// Told of a folder that could not be listed, which is then passed over; without it, the failure is thrown.
    std::function<void(const std::string& folder, const std::exception_ptr& why)> on_failure{};
    /// Told of lines of listings that could not be read.
    std::function<void(const std::string& folder, std::string_view line)> on_skipped{};
};

/// Gives everything below `folder` to `on_entry`, which may not use the session, by its path: `folder`, and
/// what is below it. The entries of one folder come together, in the order of their names; links are not
/// followed. Lists many folders at a time where the protocol can. Throws what `session::list` throws.
QRFTPCLIENT_EXPORT void walk(session& server, const std::string& folder,
                             const std::function<void(remote_entry&&)>& on_entry,
                             const walk_options& options = {});

} // namespace qrftp

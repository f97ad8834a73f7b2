#pragma once

#include "../protocol.hpp"

#include <qrftp/walk.hpp>

#include <functional>
#include <string>

namespace qrftp {

/// `walk` of a session, below an absolute path that is given to `on_entry` as `shown`.
void walk(protocol& server, const std::string& root, const std::string& shown,
          const std::function<void(remote_entry&&)>& on_entry, const walk_options& options);

} // namespace qrftp

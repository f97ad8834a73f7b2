#pragma once

#include "../protocol.hpp"

#include <string>

namespace qrftp {

/// Removes the folder `path` with all that is in it; links are removed, not followed. Everything is listed
/// before anything is removed. Throws `NotFound`, `NotFolder`, `IncompleteListing`, `PermissionDenied`, …
void remove_tree(protocol& server, const std::string& path);

} // namespace qrftp

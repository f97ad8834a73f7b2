#pragma once

#include "../protocol.hpp"

#include <string>

namespace qrftp {

/// Makes the folder `path` and what is missing above it; one that is there is no error. Returns whether it was
/// made. Throws what `protocol::make_folder` does.
bool make_with_parents(protocol& server, const std::string& path);

} // namespace qrftp

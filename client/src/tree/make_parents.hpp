#pragma once

#include "../protocol.hpp"

#include <string>

namespace qrftp {

/// Makes the folder `path` and what is missing above it; one that is there is no error. Throws what
/// `protocol::make_folder` does.
void make_with_parents(protocol& server, const std::string& path);

} // namespace qrftp

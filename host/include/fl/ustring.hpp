#pragma once

#include <string>

namespace fl {

/// The host's text: UTF-16 code units. Local paths and remote file names arrive in it.
using ustring = std::u16string;

} // namespace fl

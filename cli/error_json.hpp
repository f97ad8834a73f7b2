#pragma once

#include "json.hpp"

#include <exception>

namespace qrftp::cli {

/// A failure as an object: its class, what it is about, the server's reply code and words, the sentence, and
/// the exit status that it has.
json to_json(const std::exception& error);

} // namespace qrftp::cli

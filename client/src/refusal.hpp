#pragma once

#include "protocol.hpp"

#include <string>

namespace qrftp {

/// What a path was thought to be when the server refused it.
enum class expected {
    file,
    folder,
    empty_folder,
    nothing,  ///< something new was to get the name
    new_file, ///< a file was to get the name, another file may have it
    anything, ///< whatever has the name
};

/// What the server said, as an error kept it.
response said_by(const error& failure);

/// Throws the error that says why the server refused: it is asked what there is at `path`.
[[noreturn]] void throw_refusal(protocol& server, const std::string& path, expected what, const response& said);

} // namespace qrftp

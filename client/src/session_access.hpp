#pragma once

#include "protocol.hpp"

#include <qrftp/session.hpp>

namespace qrftp {

/// What the parts of the library that work on sessions need of one.
struct session_access {
    static protocol& server(const session& opened);
    static const session_options& options(const session& opened);
};

} // namespace qrftp

#pragma once

#include <qrftp/options.hpp>

namespace qrftp {

/// Makes the callbacks of a login fit for all connections of a session: they are called one at a time,
/// whichever connection needs them, and a password or pass phrase that was asked for once is not asked for
/// again, unless it was wrong.
void share_callbacks(session_options& options);

} // namespace qrftp

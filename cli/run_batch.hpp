#pragma once

#include "settings.hpp"

#include <qrftp/client.hpp>

#include <istream>

namespace qrftp::cli {

/// Runs the lines of `input` as the shell would, up to the first one that fails: its error is reported with the
/// number of the line. Returns the exit status.
int run_batch(session& remote, std::istream& input, const settings& how);

} // namespace qrftp::cli

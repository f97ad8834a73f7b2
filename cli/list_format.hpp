#pragma once

#include "settings.hpp"

#include <qrftp/entry.hpp>

#include <string>
#include <vector>

namespace qrftp::cli {

/// A size, with a unit where sizes are to be read by people.
std::string size_text(std::uint64_t bytes, const settings& options);

/// The name as it is printed, in the colour of its kind.
std::string coloured_name(const entry& what, const settings& options);

/// Names in columns at a terminal, unless `one_column`; else one a line.
void print_names(const std::vector<entry>& entries, const settings& options, bool one_column);

/// Mode, owner, group, size, time and name, a line each.
void print_long(const std::vector<entry>& entries, const settings& options);

} // namespace qrftp::cli

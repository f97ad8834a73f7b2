#pragma once

#include "settings.hpp"

#include <qrftp/glob.hpp>
#include <qrftp/walk.hpp>

#include <functional>
#include <string>
#include <vector>

namespace qrftp::cli {

class batch;

/// The path; where it is empty, as of a URL that names none, the working folder.
std::string or_here(const std::string& path);

/// The entries of a folder. How many lines could not be read is told on standard error.
listing read_folder(session& remote, const std::string& path, const settings& options);

/// Failures of folders go to `unread`, lines that could not be read are told on standard error.
walk_options report_to(batch& unread, const settings& options);

/// What `pattern` stands for. Throws `NotFound` when nothing matches.
std::vector<remote_entry> expand_glob(session& remote, const std::string& pattern);

/// The paths that `pattern` stands for; of one without wildcards the path itself, whether or not there is such
/// a thing. Throws `NotFound` when nothing matches.
std::vector<std::string> expand(session& remote, const std::string& pattern);

/// Calls `act` with each path that the patterns stand for; see `batch` for what becomes of failures.
void for_each_match(session& remote, const std::vector<std::string>& patterns,
                    const std::function<void(const std::string&)>& act);

} // namespace qrftp::cli

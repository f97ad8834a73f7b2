#pragma once

#include <qrftp/client.hpp>

#include <string>
#include <vector>

namespace qrftp::cli {

struct located {
    std::string path;
    entry what;
};

/// The path; where it is empty, as of a URL that names none, the working folder.
std::string or_here(const std::string& path);

/// Whether `path` has one of "*", "?" and "[" in it.
bool has_glob(const std::string& path);

/// What a glob stands for, in the order of the names. A name that is exactly what a segment says wins over
/// those that match it; names with a leading dot match only a segment that has one, too. Throws
/// `error::Missing` when nothing matches.
std::vector<located> expand_glob(session& remote, const std::string& pattern);

} // namespace qrftp::cli

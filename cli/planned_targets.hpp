#pragma once

#include <map>
#include <string>

namespace qrftp::cli {

/// What the sources of one run become, before anything is copied.
class planned_targets {
public:
    /// Throws `usage_error` where another source would become the same file: the first copy would be lost.
    void add(const std::string& target, const std::string& source);

private:
    std::map<std::string, std::string> sources_;
};

} // namespace qrftp::cli

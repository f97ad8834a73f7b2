#pragma once

#include <qrftp/client.hpp>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

struct shell_state;

/// Something that a name in a command line may stand for.
struct candidate {
    std::string name;
    entry_kind kind = entry_kind::file;
};

/// What is in remote folders, each asked for once.
class remote_names {
public:
    /// Throws what `session::list` throws.
    const std::vector<candidate>& in(session& remote, const std::string& folder);
    void forget() { folders_.clear(); }

private:
    std::map<std::string, std::vector<candidate>> folders_; ///< by absolute name
};

/// What can be put in place of the last word of a line.
struct completion {
    std::size_t start = 0; ///< of that word, quotes and all
    std::string word;      ///< as far as all candidates agree, quoted where it needs to be; empty without one
    std::vector<candidate> candidates;
};

/// Completes the last word of `line`, which ends at the cursor: the name of a command, or what the command
/// takes at that place. Throws what `session::list` throws.
completion complete(shell_state& state, std::string_view line);

} // namespace qrftp::cli

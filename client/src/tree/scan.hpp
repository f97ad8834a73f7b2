#pragma once

#include "../protocol.hpp"

#include <qrftp/tree.hpp>

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qrftp {

class local_tree;

/// What a tree has at one path.
struct tree_node {
    entry_kind kind = entry_kind::file;
    std::optional<std::uint64_t> size{};
    std::optional<timestamp> modified{};
    std::optional<std::filesystem::perms> mode{};
    std::string link_target{}; ///< of links, where they are copied; empty where it is not told
};

/// A folder with all that is in it, by the path below it. A folder comes before what is in it.
struct tree_scan {
    std::map<std::string, tree_node> nodes{};
    /// Folders that hold something which the options leave alone; the root, "", where only some paths count.
    std::set<std::string> kept{};
    std::vector<tree_failure> failures{};
    std::vector<std::string> skipped{};
    std::vector<std::string> passed_over{};
    bool exists = true; ///< there is such a folder

    /// Whether everything was read: only then does what is missing here tell anything.
    [[nodiscard]] bool is_complete() const { return failures.empty() && skipped.empty(); }
};

/// Which side of a transfer a tree is: links of a destination are never followed, and it may be missing.
enum class tree_role { source, destination };

/// Failures inside are thrown unless the options collect them.
tree_scan scan_local(local_tree& tree, const tree_options& options, tree_role role);
tree_scan scan_remote(protocol& server, const std::string& root, const tree_options& options, tree_role role);

} // namespace qrftp

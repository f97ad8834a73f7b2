#pragma once

#include <qrftp/tree.hpp>

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qrftp {

/// What a tree has at one path.
struct tree_node {
    entry_kind kind = entry_kind::file;
    std::uint64_t size = 0;
    std::optional<timestamp> modified{};
};

/// A folder with all that is in it, by the path below it. A folder comes before what is in it.
struct tree_scan {
    std::map<std::string, tree_node> nodes;
    std::set<std::string> kept; ///< folders that hold something which the options leave alone
    std::vector<tree_failure> failures;
    std::vector<std::string> skipped;
    bool there = true; ///< there is such a folder
};

/// Whether `time` is known to the second, and in UTC.
bool is_exact(const timestamp& time);

/// Missing folders are empty trees when `may_miss`. Failures inside are thrown unless the options collect them.
tree_scan scan_local(const std::filesystem::path& root, const tree_options& how, bool may_miss);
tree_scan scan_remote(session& server, const std::string& root, const tree_options& how, bool may_miss);

/// The exact modification time at a remote path, as far as the server tells.
using exact_time = std::function<std::optional<timestamp>(const std::string& path)>;

/// The steps that make `to` what `from` is, in the order in which they are to be taken. Without `update`,
/// everything is copied, whatever `to` has.
struct plan_options {
    bool update = false;
    bool remove_extra = false;
};
std::vector<tree_action> make_plan(const tree_scan& from, const tree_scan& to, const plan_options& how,
                                   const exact_time& ask);

} // namespace qrftp

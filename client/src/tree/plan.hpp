#pragma once

#include "scan.hpp"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qrftp {

/// The exact modification time at a path below the remote root, as far as the server tells.
using exact_time = std::function<std::optional<timestamp>(const std::string& path)>;

/// Whether the files at a path below both roots, of one size, have the same content.
using content_test = std::function<bool(const std::string& path)>;

struct plan_options {
    bool update = false; ///< otherwise everything is copied, whatever the destination has
    bool remove_extra = false;
    sync_comparison comparison = sync_comparison::size_and_time;
    newer_targets newer = newer_targets::replace;
    bool copy_links = false;
    std::string remote_root{};       ///< links that lead to the same place, as seen from there, are the same
    std::set<std::string> changed{}; ///< copied whatever their sizes and times say
};

/// The steps that make a destination what the source is, in the order in which they are to be taken: folders,
/// copies, removals.
struct tree_plan {
    std::vector<tree_action> actions{};
    std::vector<tree_failure> conflicts{}; ///< a folder stands where a file goes, or the other way round
};

tree_plan make_plan(const tree_scan& from, const tree_scan& to, const plan_options& options,
                    const exact_time& ask, const content_test& is_same = {});

/// Whether `time` is later than `than`, one of which may be coarse; none when that cannot be told.
std::optional<bool> is_later(const timestamp& time, const timestamp& than);

} // namespace qrftp

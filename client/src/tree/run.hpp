#pragma once

#include "../transfer/connection_pool.hpp"
#include "local_tree.hpp"
#include "outcome.hpp"
#include "scan.hpp"

#include <qrftp/tree.hpp>

#include <string>
#include <vector>

namespace qrftp {

/// Where the two trees of a plan are.
struct tree_sides {
    local_tree& local;
    std::string remote; ///< absolute
    direction way;
    bool is_known = false; ///< everything that the destination has was listed
};

/// Takes the steps of a plan: folders, then the copies over all connections of the pool, then removals.
/// `from` is what the source has.
void run_plan(const session& opened, connection_pool& pool, const tree_sides& sides,
              const tree_options& options, const tree_scan& from, const std::vector<tree_action>& actions,
              tree_outcome& outcome);

} // namespace qrftp

#pragma once

#include "filter.hpp"
#include "scan.hpp"

#include <exception>
#include <string>

namespace qrftp {

/// What scanning a local and a remote tree have in common: which entries count, and what becomes of failures.
class scan_collector {
public:
    scan_collector(const tree_options& options, tree_role role);

    /// Takes what was found at `path`. Returns whether it is a folder to be looked into.
    bool take(const std::string& path, const tree_node& found);
    /// Whether a link there is to be followed.
    [[nodiscard]] bool follows_links() const { return options_.follow_links && role_ == tree_role::source; }

    /// Whether links are copied as links: where they lead is to be told.
    [[nodiscard]] bool copies_links() const { return options_.copy_links; }

    void skip(std::string line) { result_.skipped.push_back(std::move(line)); }
    void pass_over(std::string path) { result_.passed_over.push_back(std::move(path)); }
    /// Collects a failure, or throws it.
    void fail(const std::string& path, const std::exception_ptr& why);
    /// The root is missing: an empty tree where that may be, else `why` is thrown.
    void root_is_missing(const std::exception_ptr& why);
    /// Forgets what was found in `folder`.
    void forget(const std::string& folder);

    tree_scan finish();

private:
    void keep_above(std::string path);
    void drop_empty_folders();

    const tree_options& options_;
    tree_role role_;
    filter filter_;
    tree_scan result_;
};

} // namespace qrftp

#pragma once

#include <qrftp/tree.hpp>

#include <set>
#include <string>
#include <vector>

namespace qrftp {

/// Whether `path` is one of `paths`, or below or above one of them.
bool is_related(const std::set<std::string>& paths, const std::string& path);

/// Which entries of a tree the options leave out.
class filter {
public:
    explicit filter(const tree_options& options);

    /// `path` is below the root of the tree.
    [[nodiscard]] bool leaves_out(const std::string& path, entry_kind kind) const;
    /// Whether only some files are wanted: folders without any of them are not.
    [[nodiscard]] bool is_selective() const { return !include_.empty(); }
    /// Whether only some paths are looked at.
    [[nodiscard]] bool is_partial() const { return !only_.empty(); }

private:
    struct rule {
        std::string glob;
        bool folders_only = false;
        bool whole_path = false; ///< compared with the path, not with the name alone
    };

    static std::vector<rule> make_rules(const std::vector<std::string>& globs);
    static bool matches_any(const std::vector<rule>& rules, const std::string& path, entry_kind kind);

    std::vector<rule> include_;
    std::vector<rule> exclude_;
    std::set<std::string> only_;
};

} // namespace qrftp

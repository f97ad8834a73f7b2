#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qrftp::cli {

/// A change of permissions as chmod(1) takes it: octal digits, or symbols such as "u+x,go-w".
class mode_change {
public:
    /// Throws `usage_error`.
    explicit mode_change(const std::string& text);

    /// Whether the new mode depends on the old one.
    [[nodiscard]] bool needs_mode() const { return !clauses_.empty(); }
    [[nodiscard]] std::filesystem::perms apply(std::filesystem::perms mode, bool is_folder) const;

private:
    /// "go-w": what it is for, what it does, and the bits, for each of user, group and others.
    struct clause {
        unsigned who = 0; ///< bits of u (4), g (2), o (1)
        char operation = '=';
        std::string permissions;
    };

    static clause parse_clause(const std::string& text);
    [[nodiscard]] static unsigned bits_of(const clause& one, unsigned mode, bool is_folder);

    std::vector<clause> clauses_;
    unsigned octal_ = 0;
};

} // namespace qrftp::cli

#include <qrftp/tree.hpp>

#include <string_view>

namespace qrftp {

namespace {

/// Takes the set "[…]" at the front of `pattern` off it. An opening bracket without a closing one is a
/// character like others.
bool match_set(std::string_view& pattern, char byte)
{
    const bool negated = pattern.size() > 1 && (pattern[1] == '!' || pattern[1] == '^');
    const std::size_t first = negated ? 2 : 1;
    const std::size_t close = pattern.find(']', first + 1);
    if (close == std::string_view::npos) {
        const bool same = pattern.front() == byte;
        pattern.remove_prefix(1);
        return same;
    }
    bool found = false;
    for (std::size_t i = first; i < close; ++i) {
        if (i + 2 < close && pattern[i + 1] == '-') {
            found = found || (pattern[i] <= byte && byte <= pattern[i + 2]);
            i += 2;
        } else {
            found = found || pattern[i] == byte;
        }
    }
    pattern.remove_prefix(close + 1);
    return found != negated && byte != '/';
}

/// Takes one pattern element off that stands for exactly one byte.
bool match_one(std::string_view& pattern, char byte)
{
    if (pattern.front() == '[') {
        return match_set(pattern, byte);
    }
    const bool same = pattern.front() == byte || (pattern.front() == '?' && byte != '/');
    pattern.remove_prefix(1);
    return same;
}

/// Where to go on when what followed a star did not match: the star then takes more. Only the last star of
/// each kind is ever gone back to, so that no pattern takes long.
struct retry {
    std::string_view pattern;
    std::string_view path;
    enum class kind { in_segment, anywhere, whole_segments } takes = kind::in_segment;
    bool set = false;

    /// Whether the star could take more.
    bool take_more()
    {
        if (!set || path.empty() || (path.front() == '/' && takes == kind::in_segment)) {
            return false;
        }
        const std::size_t taken = takes == kind::whole_segments ? path.find('/') : 0;
        set = taken != std::string_view::npos;
        path.remove_prefix(set ? taken + 1 : 0);
        return set;
    }
};

} // namespace

bool glob_match(std::string_view pattern, std::string_view path)
{
    const std::string_view all = pattern;
    retry star;
    retry double_star;
    for (;;) {
        if (pattern.starts_with("**")) {
            const std::string_view before = all.substr(0, all.size() - pattern.size());
            const bool whole = pattern.starts_with("**/") && (before.empty() || before.ends_with('/'));
            pattern.remove_prefix(whole ? 3 : 2);
            double_star = {pattern, path, whole ? retry::kind::whole_segments : retry::kind::anywhere, true};
            star.set = false;
        } else if (pattern.starts_with('*')) {
            pattern.remove_prefix(1);
            star = {pattern, path, retry::kind::in_segment, true};
        } else if (pattern.empty() && path.empty()) {
            return true;
        } else if (!pattern.empty() && !path.empty() && match_one(pattern, path.front())) {
            path.remove_prefix(1);
        } else if (star.take_more()) {
            pattern = star.pattern;
            path = star.path;
        } else if (double_star.take_more()) {
            pattern = double_star.pattern;
            path = double_star.path;
            star.set = false;
        } else {
            return false;
        }
    }
}

} // namespace qrftp

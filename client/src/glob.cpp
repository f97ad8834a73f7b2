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

} // namespace

bool glob_match(std::string_view pattern, std::string_view path)
{
    // What follows the last star of each kind, and where in the path it was last tried: only these two are ever
    // gone back to, so that no pattern takes long.
    struct retry {
        std::string_view pattern;
        std::string_view path;
        bool set = false;
    };
    retry star;
    retry double_star;
    const auto go_back = [&] {
        for (retry* last : {&star, &double_star}) {
            const bool stopped = last == &star && last->set && !last->path.empty() && last->path.front() == '/';
            if (last->set && !last->path.empty() && !stopped) {
                last->path.remove_prefix(1);
                pattern = last->pattern;
                path = last->path;
                star.set = last == &star;
                return true;
            }
        }
        return false;
    };
    for (;;) {
        if (pattern.starts_with("**")) {
            pattern.remove_prefix(pattern.starts_with("**/") ? 3 : 2);
            double_star = {pattern, path, true};
            star.set = false;
        } else if (pattern.starts_with('*')) {
            pattern.remove_prefix(1);
            star = {pattern, path, true};
        } else if (pattern.empty() && path.empty()) {
            return true;
        } else if (pattern.empty() || path.empty() || !match_one(pattern, path.front())) {
            if (!go_back()) {
                return false;
            }
        } else {
            path.remove_prefix(1);
        }
    }
}

} // namespace qrftp

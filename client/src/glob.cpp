#include <qrftp/glob.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace qrftp {

namespace {

constexpr std::string_view wildcards = "*?[";
constexpr std::string_view special_in_sets = "]!^-";

/// Takes one literal byte off the front of `pattern`, with the backslash that may stand before it.
char take_literal(std::string_view& pattern)
{
    pattern.remove_prefix(pattern.front() == '\\' && pattern.size() > 1 ? 1 : 0);
    const char byte = pattern.front();
    pattern.remove_prefix(1);
    return byte;
}

/// How long the set "[…]" at the front of `pattern` is; 0 when no bracket closes it. A closing bracket that is
/// the first member does not.
std::size_t set_length(std::string_view pattern)
{
    const bool negated = pattern.size() > 1 && (pattern[1] == '!' || pattern[1] == '^');
    const std::size_t first = negated ? 2 : 1;
    for (std::size_t place = first; place < pattern.size(); ++place) {
        if (pattern[place] == ']' && place > first) {
            return place + 1;
        }
        place += pattern[place] == '\\' ? 1 : 0;
    }
    return 0;
}

bool match_set(std::string_view set, char byte)
{
    const auto value = [](char letter) { return static_cast<unsigned char>(letter); };
    const bool negated = set.front() == '!' || set.front() == '^';
    set.remove_prefix(negated ? 1 : 0);
    bool found = false;
    while (!set.empty()) {
        const char low = take_literal(set);
        char high = low;
        if (set.size() > 1 && set.front() == '-') {
            set.remove_prefix(1);
            high = take_literal(set);
        }
        found = found || (value(low) <= value(byte) && value(byte) <= value(high));
    }
    return found != negated && byte != '/';
}

/// Takes one pattern element off that stands for exactly one byte. An opening bracket that none closes stands
/// for itself.
bool match_one(std::string_view& pattern, char byte)
{
    if (pattern.front() == '?') {
        pattern.remove_prefix(1);
        return byte != '/';
    }
    const std::size_t length = pattern.front() == '[' ? set_length(pattern) : 0;
    if (length == 0) {
        return take_literal(pattern) == byte;
    }
    const std::string_view set = pattern.substr(1, length - 2);
    pattern.remove_prefix(length);
    return match_set(set, byte);
}

/// Where to continue when what followed a star did not match: the star then takes more. Only the last star of
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

std::string join(const std::string& folder, const std::string& name)
{
    return folder.empty() || folder.ends_with('/') ? folder + name : folder + '/' + name;
}

/// The entries of `folder` that `pattern` stands for. One that is called exactly so wins over those that match.
std::vector<remote_entry> match_in(session& server, const std::string& folder, const std::string& pattern)
{
    const std::string exact = glob_unescape(pattern);
    std::vector<remote_entry> found;
    for (entry& one : server.list(folder.empty() ? "." : folder).entries) {
        std::string path = join(folder, one.name);
        if (one.name == exact) {
            return {{std::move(path), std::move(one)}};
        }
        if ((one.name.front() != '.' || pattern.front() == '.') && glob_match(pattern, one.name)) {
            found.push_back({std::move(path), std::move(one)});
        }
    }
    return found;
}

bool leads_to_folder(session& server, const remote_entry& one)
{
    return one.what.kind == entry_kind::folder ||
           (one.what.kind == entry_kind::link && server.is_folder(one.path));
}

/// What `segment`, which has a wildcard, stands for in each of `folders`.
std::vector<remote_entry> expand_segment(session& server, const std::vector<std::string>& folders,
                                         const std::string& segment, bool may_be_missing)
{
    std::vector<remote_entry> found;
    for (const std::string& folder : folders) {
        try {
            std::ranges::move(match_in(server, folder, segment), std::back_inserter(found));
        } catch (const NotFound&) {
            if (!may_be_missing) {
                throw;
            }
        } catch (const NotFolder&) {
            if (!may_be_missing) {
                throw;
            }
        }
    }
    return found;
}

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

bool has_magic(std::string_view text) noexcept
{
    for (std::size_t place = 0; place < text.size(); ++place) {
        if (wildcards.find(text[place]) != std::string_view::npos) {
            return true;
        }
        place += text[place] == '\\' ? 1 : 0;
    }
    return false;
}

std::string glob_escape(std::string_view text)
{
    std::string pattern;
    for (const char byte : text) {
        const bool is_special = byte == '\\' || wildcards.find(byte) != std::string_view::npos ||
                                special_in_sets.find(byte) != std::string_view::npos;
        pattern.append(is_special ? 1 : 0, '\\').push_back(byte);
    }
    return pattern;
}

std::string glob_unescape(std::string_view pattern)
{
    std::string text;
    while (!pattern.empty()) {
        text += take_literal(pattern);
    }
    return text;
}

std::vector<remote_entry> glob(session& server, const std::string& pattern)
{
    const std::size_t start = std::min(pattern.find_first_not_of('/'), pattern.size());
    std::string_view rest = std::string_view(pattern).substr(start, pattern.find_last_not_of('/') + 1 - start);
    std::vector<std::string> folders{start > 0 ? "/" : ""};
    bool has_expanded = false;
    while (has_magic(rest)) {
        const std::string segment(rest.substr(0, rest.find('/')));
        rest.remove_prefix(std::min(rest.find_first_not_of('/', segment.size()), rest.size()));
        if (!has_magic(segment)) {
            for (std::string& folder : folders) {
                folder = join(folder, glob_unescape(segment));
            }
            continue;
        }
        std::vector<remote_entry> found = expand_segment(server, folders, segment, has_expanded);
        if (rest.empty()) {
            return found;
        }
        has_expanded = true;
        folders.clear();
        for (remote_entry& one : found) {
            if (leads_to_folder(server, one)) {
                folders.push_back(std::move(one.path));
            }
        }
    }
    std::vector<remote_entry> found;
    for (const std::string& folder : folders) {
        std::string path = join(folder, glob_unescape(rest));
        if (auto what = server.find(path.empty() ? "." : path)) {
            found.push_back({std::move(path), std::move(*what)});
        }
    }
    return found;
}

} // namespace qrftp

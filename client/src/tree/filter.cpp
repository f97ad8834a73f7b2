#include "filter.hpp"

#include "../remote_path.hpp"

#include <qrftp/glob.hpp>

#include <algorithm>

namespace qrftp {

bool is_related(const std::set<std::string>& paths, const std::string& path)
{
    for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
        if (paths.contains(path.substr(0, end))) {
            return true;
        }
    }
    const auto next = paths.lower_bound(path + '/');
    return paths.contains(path) || (next != paths.end() && next->starts_with(path + '/'));
}

filter::filter(const tree_options& options)
    : include_(make_rules(options.include)), exclude_(make_rules(options.exclude)),
      only_(options.only.begin(), options.only.end())
{
}

bool filter::leaves_out(const std::string& path, entry_kind kind) const
{
    const bool unwanted = kind != entry_kind::folder && !include_.empty() && !matches_any(include_, path, kind);
    return unwanted || matches_any(exclude_, path, kind) || (is_partial() && !is_related(only_, path));
}

std::vector<filter::rule> filter::make_rules(const std::vector<std::string>& globs)
{
    std::vector<rule> rules;
    for (std::string glob : globs) {
        rule made;
        made.folders_only = glob.ends_with('/');
        glob.erase(glob.find_last_not_of('/') + 1);
        made.whole_path = glob.find('/') != std::string::npos;
        glob.erase(0, glob.find_first_not_of('/'));
        made.glob = std::move(glob);
        rules.push_back(std::move(made));
    }
    return rules;
}

bool filter::matches_any(const std::vector<rule>& rules, const std::string& path, entry_kind kind)
{
    const std::string name = remote_path::filename(path);
    return std::any_of(rules.begin(), rules.end(), [&](const rule& each) {
        return (!each.folders_only || kind == entry_kind::folder) &&
               glob_match(each.glob, each.whole_path ? path : name);
    });
}

bool leaves_out(const tree_options& options, const std::string& path, entry_kind kind)
{
    const filter rules(options);
    for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
        if (rules.leaves_out(path.substr(0, end), entry_kind::folder)) {
            return true;
        }
    }
    return rules.leaves_out(path, kind) || remote_path::is_temporary_name(remote_path::filename(path));
}

} // namespace qrftp

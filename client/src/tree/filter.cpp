#include "filter.hpp"

#include "../remote_path.hpp"

#include <qrftp/glob.hpp>

#include <algorithm>

namespace qrftp {

filter::filter(const tree_options& options)
    : include_(make_rules(options.include)), exclude_(make_rules(options.exclude))
{
}

bool filter::leaves_out(const std::string& path, entry_kind kind) const
{
    const bool unwanted = kind != entry_kind::folder && !include_.empty() && !matches_any(include_, path, kind);
    return unwanted || matches_any(exclude_, path, kind);
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

} // namespace qrftp

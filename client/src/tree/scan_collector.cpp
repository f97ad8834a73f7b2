#include "scan_collector.hpp"

#include "../remote_path.hpp"
#include "outcome.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp {

scan_collector::scan_collector(const tree_options& options, tree_role role)
    : options_(options), role_(role), filter_(options)
{
}

bool scan_collector::take(const std::string& path, const tree_node& found)
{
    if (remote_path::is_temporary_name(remote_path::filename(path)) || filter_.leaves_out(path, found.kind)) {
        keep_above(path);
        return false;
    }
    const bool is_passed_over =
        found.kind == entry_kind::other || (found.kind == entry_kind::link && !options_.copy_links);
    if (role_ == tree_role::source && is_passed_over) {
        pass_over(path);
    }
    result_.nodes.emplace(path, found);
    if (found.kind != entry_kind::folder) {
        return false;
    }
    const auto depth = static_cast<unsigned>(std::count(path.begin(), path.end(), '/')) + 1;
    if (depth >= options_.max_depth) {
        fail(path,
             std::make_exception_ptr(UnsafeName(
                 path, fmt::format("folders are nested deeper than {} (--max-depth)", options_.max_depth))));
        return false;
    }
    return true;
}

void scan_collector::fail(const std::string& path, const std::exception_ptr& why)
{
    throw_unless_collected(options_, why);
    result_.failures.push_back({path, why});
}

void scan_collector::root_is_missing(const std::exception_ptr& why)
{
    if (role_ == tree_role::source) {
        std::rethrow_exception(why);
    }
    result_.exists = false;
}

void scan_collector::forget(const std::string& folder)
{
    std::erase_if(result_.nodes, [&](const auto& node) {
        const std::size_t slash = node.first.rfind('/');
        return folder == (slash == std::string::npos ? "" : node.first.substr(0, slash));
    });
}

tree_scan scan_collector::finish()
{
    if (filter_.is_selective()) {
        drop_empty_folders();
    }
    return std::move(result_);
}

void scan_collector::keep_above(std::string path)
{
    if (filter_.is_partial()) {
        result_.kept.insert("");
    }
    for (std::size_t slash = path.rfind('/'); slash != std::string::npos; slash = path.rfind('/')) {
        path.resize(slash);
        if (!result_.kept.insert(path).second) {
            return;
        }
    }
}

void scan_collector::drop_empty_folders()
{
    std::set<std::string> wanted;
    for (const auto& [path, node] : result_.nodes) {
        const bool is_copied =
            node.kind == entry_kind::file || (node.kind == entry_kind::link && options_.copy_links);
        for (std::size_t slash = path.find('/'); is_copied && slash != std::string::npos;
             slash = path.find('/', slash + 1)) {
            wanted.insert(path.substr(0, slash));
        }
    }
    std::erase_if(result_.nodes, [&](const auto& node) {
        return node.second.kind == entry_kind::folder && !wanted.contains(node.first);
    });
}

} // namespace qrftp

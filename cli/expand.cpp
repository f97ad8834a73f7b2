#include "expand.hpp"

#include "commands.hpp"
#include "output.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace qrftp::cli {

namespace {

std::vector<located> matches_in(session& remote, const std::string& folder, const std::string& pattern)
{
    std::vector<located> found;
    for (entry& one : remote.list(folder.empty() ? "." : folder).entries) {
        std::string path = join(folder, one.name);
        if (one.name == pattern) {
            return {{std::move(path), std::move(one)}};
        }
        if ((one.name.front() != '.' || pattern.front() == '.') && glob_match(pattern, one.name)) {
            found.push_back({std::move(path), std::move(one)});
        }
    }
    return found;
}

/// What `rest`, a path below `folder`, stands for.
std::vector<located> walk(session& remote, const std::string& folder, const std::string& rest)
{
    const auto slash = rest.find('/');
    const std::string segment = rest.substr(0, slash);
    const std::string below = slash == std::string::npos ? "" : rest.substr(rest.find_first_not_of('/', slash));
    if (!has_glob(rest)) {
        const auto what = remote.find(join(folder, rest));
        return what ? std::vector<located>{{join(folder, rest), *what}} : std::vector<located>();
    }
    if (!has_glob(segment)) {
        return walk(remote, join(folder, segment), below);
    }
    std::vector<located> found = matches_in(remote, folder, segment);
    if (below.empty()) {
        return found;
    }
    std::vector<located> deeper;
    for (const located& one : found) {
        const bool folder_itself = one.what.kind == entry_kind::folder;
        if (folder_itself || (one.what.kind == entry_kind::link && remote.is_folder(one.path))) {
            std::ranges::move(walk(remote, one.path, below), std::back_inserter(deeper));
        }
    }
    return deeper;
}

} // namespace

std::string or_here(const std::string& path)
{
    return path.empty() ? "." : path;
}

bool has_glob(const std::string& path)
{
    return path.find_first_of("*?[") != std::string::npos;
}

std::vector<located> expand_glob(session& remote, const std::string& pattern)
{
    const auto start = std::min(pattern.find_first_not_of('/'), pattern.size());
    const auto end = pattern.find_last_not_of('/') + 1;
    auto found = walk(remote, start > 0 ? "/" : "", pattern.substr(start, end - start));
    if (found.empty()) {
        foundation::core::except::raise<error::Missing>(pattern);
    }
    return found;
}

std::vector<std::string> expand(session& remote, const std::string& pattern)
{
    if (!has_glob(pattern)) {
        return {pattern};
    }
    std::vector<std::string> paths;
    for (located& one : expand_glob(remote, pattern)) {
        paths.push_back(std::move(one.path));
    }
    return paths;
}

} // namespace qrftp::cli

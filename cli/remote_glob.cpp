#include "remote_glob.hpp"

#include "batch.hpp"
#include "format.hpp"
#include "output.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <utility>

namespace qrftp::cli {

std::string or_here(const std::string& path)
{
    return path.empty() ? "." : path;
}

listing read_folder(session& remote, const std::string& path, const settings& options)
{
    listing found = remote.list(path);
    if (!found.skipped.empty()) {
        note(options, fmt::format("{} of the listing of \"{}\" could not be read and {} left out.",
                                  counted(found.skipped.size(), "line"), escape(path),
                                  found.skipped.size() == 1 ? "is" : "are"));
    }
    return found;
}

walk_options report_to(batch& unread, const settings& options)
{
    walk_options how;
    how.on_failure = [&unread](const std::string&, const std::exception_ptr& why) {
        unread.attempt([&] { std::rethrow_exception(why); });
    };
    how.on_skipped = [&options](const std::string& folder, std::string_view) {
        note(options,
             fmt::format("A line of the listing of \"{}\" could not be read and is left out.", escape(folder)));
    };
    return how;
}

std::vector<remote_entry> expand_glob(session& remote, const std::string& pattern)
{
    std::vector<remote_entry> found = glob(remote, pattern);
    if (found.empty()) {
        throw NotFound(pattern);
    }
    return found;
}

std::vector<std::string> expand(session& remote, const std::string& pattern)
{
    if (!has_magic(pattern)) {
        return {glob_unescape(pattern)};
    }
    std::vector<std::string> paths;
    for (remote_entry& one : expand_glob(remote, pattern)) {
        paths.push_back(std::move(one.path));
    }
    return paths;
}

void for_each_match(session& remote, const std::vector<std::string>& patterns,
                    const std::function<void(const std::string&)>& act)
{
    batch all(patterns.size() <= 1);
    for (const std::string& pattern : patterns) {
        all.attempt([&] {
            const std::vector<std::string> found = expand(remote, pattern);
            batch these(found.size() <= 1);
            for (const std::string& one : found) {
                these.attempt([&] { act(one); });
            }
            these.finish();
        });
    }
    all.finish();
}

} // namespace qrftp::cli

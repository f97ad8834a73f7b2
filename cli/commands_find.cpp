#include "batch.hpp"
#include "commands.hpp"
#include "format.hpp"
#include "json.hpp"
#include "output.hpp"
#include "remote_glob.hpp"

#include <qrftp/trace.hpp>

#include <limits>
#include <string_view>

namespace qrftp::cli {

namespace {

bool has_wanted_time(const entry& what, const find_arguments& arguments)
{
    if (!arguments.newer && !arguments.older) {
        return true;
    }
    if (!what.modified) {
        return false;
    }
    const auto age = std::chrono::system_clock::now() - what.modified->time;
    const auto seconds = [](std::uint64_t count) {
        return std::chrono::seconds(static_cast<std::chrono::seconds::rep>(count));
    };
    return (!arguments.newer || age < seconds(*arguments.newer)) &&
           (!arguments.older || age > seconds(*arguments.older));
}

bool has_wanted_size(const entry& what, const find_arguments& arguments)
{
    if (!arguments.larger && !arguments.smaller) {
        return true;
    }
    return what.size && (!arguments.larger || *what.size > *arguments.larger) &&
           (!arguments.smaller || *what.size < *arguments.smaller);
}

bool is_wanted(const entry& what, const find_arguments& arguments)
{
    constexpr std::string_view types = "fdl";
    const bool has_type =
        arguments.type.empty() || static_cast<std::size_t>(what.kind) == types.find(arguments.type);
    return has_type && (arguments.name.empty() || glob_match(arguments.name, what.name)) &&
           has_wanted_time(what, arguments) && has_wanted_size(what, arguments);
}

} // namespace

void find(session& remote, const find_arguments& arguments, const settings& options)
{
    batch unread(false);
    walk_options how = report_to(unread, options);
    how.max_depth = arguments.max_depth == 0 ? std::numeric_limits<unsigned>::max() : arguments.max_depth;
    const auto print_one = [&](const remote_entry& one) {
        if (options.json) {
            print_json(to_json(one.what, one.path));
        } else if (arguments.null) {
            print(one.path + '\0');
        } else {
            print_line(escape(one.path));
        }
    };
    for_each_match(remote, arguments.patterns, [&](const std::string& folder) {
        walk(
            remote, folder.empty() ? "." : folder,
            [&](remote_entry&& one) {
                if (is_wanted(one.what, arguments)) {
                    one.path = folder.empty() ? one.path.substr(2) : std::move(one.path);
                    print_one(one);
                }
            },
            how);
    });
    flush_output();
    unread.finish();
}

} // namespace qrftp::cli

#include "batch.hpp"
#include "commands.hpp"
#include "format.hpp"
#include "json.hpp"
#include "list_format.hpp"
#include "output.hpp"
#include "remote_glob.hpp"

#include <qrftp/trace.hpp>

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>

namespace qrftp::cli {

namespace {

/// A folder to list, and what is in it where that is known already.
struct folder {
    std::string path;
    std::optional<listing> content{};
};

class lister {
public:
    lister(session& remote, const ls_arguments& arguments, const settings& options)
        : remote_(remote), arguments_(arguments), options_(options)
    {
    }

    void run()
    {
        const auto patterns = arguments_.patterns.empty() ? std::vector<std::string>{"."} : arguments_.patterns;
        batch all(patterns.size() == 1);
        for (const std::string& pattern : patterns) {
            all.attempt([&] { look_up(pattern); });
        }
        print_files();
        has_headings_ = arguments_.recursive || folders_.size() + files_.size() > 1;
        for (folder& one : folders_) {
            all.attempt([&] { print_tree(std::move(one)); });
        }
        all.finish();
    }

private:
    /// A path without wildcards is taken for a folder: listing it tells.
    void look_up(const std::string& pattern)
    {
        if (!has_magic(pattern)) {
            const std::string path = or_here(glob_unescape(pattern));
            try {
                folders_.push_back({path, read_folder(remote_, path, options_)});
            } catch (const NotFolder&) {
                files_.push_back({path, remote_.stat(path)});
            }
            return;
        }
        for (remote_entry& one : expand_glob(remote_, pattern)) {
            const bool link = one.what.kind == entry_kind::link;
            if (one.what.kind == entry_kind::folder || (link && remote_.is_folder(one.path))) {
                folders_.push_back({std::move(one.path)});
            } else {
                files_.push_back(std::move(one));
            }
        }
    }

    void print_files()
    {
        sort(files_, &remote_entry::what);
        std::vector<entry> entries;
        entries.reserve(files_.size());
        for (const remote_entry& one : files_) {
            entries.push_back(one.what);
        }
        name_owners(entries);
        for (std::size_t i = 0; i < files_.size(); ++i) {
            if (options_.json) {
                print_json(to_json(entries[i], files_[i].path));
            }
            entries[i].name = files_[i].path;
        }
        print_entries(entries);
    }

    void name_owners(std::vector<entry>& entries)
    {
        if (arguments_.list.long_form) {
            remote_.name_owners(entries);
        }
    }

    /// As the options want it. What comes ordered by name stays so among equals.
    template <class Entries, class Projection = std::identity>
    void sort(Entries& entries, Projection of = {}) const
    {
        if (arguments_.list.by_size) {
            std::ranges::stable_sort(entries, std::greater<>(),
                                     [&](const auto& one) { return std::invoke(of, one).size.value_or(0); });
        } else if (arguments_.list.by_time) {
            std::ranges::stable_sort(entries, std::greater<>(), [&](const auto& one) {
                const auto& time = std::invoke(of, one).modified;
                return time ? time->time : std::chrono::sys_seconds::min();
            });
        }
        if (arguments_.list.reverse) {
            std::ranges::reverse(entries);
        }
    }

    void print_entries(const std::vector<entry>& entries)
    {
        if (!options_.json && !entries.empty()) {
            has_printed_ = true;
            arguments_.list.long_form ? print_long(entries, options_)
                                      : print_names(entries, options_, arguments_.list.one_column);
        }
    }

    /// The folder, and with --recursive all below it; without recursion, since it is the server that nests
    /// them.
    void print_tree(folder top)
    {
        std::vector<folder> waiting;
        print_folder(std::move(top), waiting);
        batch all(false);
        while (!waiting.empty()) {
            folder next = std::move(waiting.back());
            waiting.pop_back();
            all.attempt([&] { print_folder(std::move(next), waiting); });
        }
        all.finish();
    }

    void print_folder(folder one, std::vector<folder>& waiting)
    {
        listing found = one.content ? std::move(*one.content) : read_folder(remote_, one.path, options_);
        name_owners(found.entries);
        if (has_headings_ && !options_.json) {
            print_line((std::exchange(has_printed_, true) ? "\n" : "") + escape(one.path) + ":");
        }
        if (!options_.json && !arguments_.list.hidden) {
            std::erase_if(found.entries, [](const entry& child) { return child.name.starts_with('.'); });
        }
        sort(found.entries);
        std::vector<folder> below;
        for (const entry& child : found.entries) {
            std::string path = join(one.path, child.name);
            if (options_.json) {
                print_json(to_json(child, path));
            }
            if (arguments_.recursive && child.kind == entry_kind::folder) {
                below.push_back({std::move(path)});
            }
        }
        print_entries(found.entries);
        std::move(below.rbegin(), below.rend(), std::back_inserter(waiting));
    }

    session& remote_;
    const ls_arguments& arguments_;
    const settings& options_;
    std::vector<remote_entry> files_;
    std::vector<folder> folders_;
    bool has_headings_ = false;
    bool has_printed_ = false;
};

} // namespace

void ls(session& remote, const ls_arguments& arguments, const settings& options)
{
    lister(remote, arguments, options).run();
    flush_output();
}

} // namespace qrftp::cli

#include "batch.hpp"
#include "commands.hpp"
#include "format.hpp"
#include "json.hpp"
#include "list_format.hpp"
#include "output.hpp"
#include "remote_glob.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include <langinfo.h>

namespace qrftp::cli {

namespace {

/// The lines that a tree is drawn with.
struct branches {
    const char* middle;
    const char* last;
    const char* past;
    const char* gap = "    ";
};

const branches& usable_branches()
{
    static constexpr branches lines{"├── ", "└── ", "│   "};
    static constexpr branches ascii{"|-- ", "`-- ", "|   "};
    const std::string_view codes = nl_langinfo(CODESET); // NOLINT(concurrency-mt-unsafe): one thread
    return codes == "UTF-8" ? lines : ascii;
}

/// Prints a tree, without recursion, since it is the server that nests the folders.
class tree_printer {
public:
    tree_printer(session& remote, unsigned depth, const settings& options)
        : remote_(remote), depth_(depth), options_(options)
    {
    }

    void print_below(const std::string& top)
    {
        enter(top, "");
        batch all(false);
        while (!levels_.empty()) {
            level& here = levels_.back();
            if (here.next == here.entries.size()) {
                levels_.pop_back();
                continue;
            }
            const entry one = std::move(here.entries[here.next++]);
            const bool is_last = here.next == here.entries.size();
            const std::string path = join(here.path, one.name);
            const std::string indent = here.indent;
            print_entry(one, path, indent + (is_last ? drawn_.last : drawn_.middle));
            if (one.kind == entry_kind::folder && (depth_ == 0 || levels_.size() < depth_)) {
                all.attempt([&] { enter(path, indent + (is_last ? drawn_.gap : drawn_.past)); });
            }
        }
        all.finish();
    }

    void print_sum() const
    {
        if (!options_.json) {
            print_line(fmt::format("\n{}, {}", counted(folders_, "folder"), counted(others_, "file")));
        }
    }

private:
    /// A folder that is being printed.
    struct level {
        std::string path;
        std::string indent;
        std::vector<entry> entries;
        std::size_t next = 0;
    };

    void enter(const std::string& path, std::string indent)
    {
        levels_.push_back({path, std::move(indent), read_folder(remote_, path, options_).entries});
    }

    void print_entry(const entry& one, const std::string& path, const std::string& indent)
    {
        ++(one.kind == entry_kind::folder ? folders_ : others_);
        if (options_.json) {
            print_json(to_json(one, path));
            return;
        }
        const std::string target = one.link_target.empty() ? "" : " -> " + escape(one.link_target);
        print_line(indent + coloured_name(one, options_) + target);
    }

    session& remote_;
    unsigned depth_;
    const settings& options_;
    const branches& drawn_ = usable_branches();
    std::vector<level> levels_;
    std::size_t folders_ = 0;
    std::size_t others_ = 0;
};

/// Adds up what is in folders, each with all that is below it.
class size_counter {
public:
    size_counter(session& remote, bool summarize, const settings& options, batch& all)
        : remote_(remote), summarize_(summarize), options_(options), how_(report_to(all, options))
    {
    }

    std::uint64_t sum_of(const std::string& top)
    {
        sums_ = {{key_of(""), {}}};
        const std::size_t above = top.ends_with('/') ? top.size() - 1 : top.size();
        const auto count = [&](const remote_entry& one) {
            const std::string path = one.path.substr(above); // with the slash before it
            if (one.what.kind == entry_kind::folder) {
                sums_[key_of(path)].path = path;
            } else {
                add(path, one.what.size.value_or(0));
            }
        };
        walk(remote_, top, count, how_);
        for (; sums_.size() > 1; sums_.erase(sums_.begin())) {
            const folder_sum& done = sums_.begin()->second;
            if (!summarize_) {
                print(join(top, done.path.substr(1)), done.size, entry_kind::folder);
            }
            add(done.path, done.size);
        }
        return sums_.begin()->second.size;
    }

    void print(const std::string& path, std::uint64_t size, entry_kind kind) const
    {
        if (!options_.json) {
            print_line(size_text(size, options_) + '\t' + escape(path));
            return;
        }
        entry sum;
        sum.name = last_segment(path);
        sum.kind = kind;
        sum.size = size;
        print_json(to_json(sum, path));
    }

private:
    struct folder_sum {
        std::string path{};
        std::uint64_t size = 0;
    };

    /// In their order, what is below a folder comes before it.
    static std::string key_of(std::string path)
    {
        std::ranges::replace(path, '/', '\0');
        return path + '\xff';
    }

    /// Adds to the folder that `path` lies in.
    void add(const std::string& path, std::uint64_t size)
    {
        std::uint64_t& sum = sums_.at(key_of(path.substr(0, path.rfind('/')))).size;
        sum = add_sizes(sum, size);
    }

    session& remote_;
    bool summarize_;
    const settings& options_;
    walk_options how_;
    std::map<std::string, folder_sum> sums_;
};

/// What a pattern stands for; one without wildcards is a path.
std::vector<remote_entry> look_up(session& remote, const std::string& pattern)
{
    if (has_magic(pattern)) {
        return expand_glob(remote, pattern);
    }
    std::string path = or_here(glob_unescape(pattern));
    entry what = remote.stat(path);
    return {{std::move(path), std::move(what)}};
}

} // namespace

void tree(session& remote, const tree_arguments& arguments, const settings& options)
{
    const std::string path = or_here(arguments.path);
    tree_printer printer(remote, arguments.depth, options);
    if (!options.json) {
        print_line(escape(path));
    }
    printer.print_below(path);
    printer.print_sum();
    flush_output();
}

void du(session& remote, const std::vector<std::string>& patterns, bool summarize, const settings& options)
{
    batch below(false);
    batch roots(patterns.size() <= 1);
    size_counter counter(remote, summarize, options, below);
    for (const std::string& pattern : patterns.empty() ? std::vector<std::string>{"."} : patterns) {
        roots.attempt([&] {
            for (const remote_entry& one : look_up(remote, pattern)) {
                const bool is_folder = one.what.kind == entry_kind::folder;
                const std::uint64_t size = is_folder ? counter.sum_of(one.path) : one.what.size.value_or(0);
                counter.print(one.path, size, one.what.kind);
            }
        });
    }
    flush_output();
    roots.finish();
    below.finish();
}

} // namespace qrftp::cli

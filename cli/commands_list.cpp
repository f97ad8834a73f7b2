#include "commands.hpp"
#include "exit_status.hpp"
#include "expand.hpp"
#include "output.hpp"

#include <optional>
#include <string_view>
#include <utility>

#include <langinfo.h>

namespace qrftp::cli {

namespace {

std::string counted(std::size_t count, const std::string& what)
{
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

listing read_folder(session& remote, const std::string& path, const settings& how)
{
    listing found = remote.list(path);
    if (!found.skipped.empty()) {
        note(how, std::to_string(found.skipped.size()) + " lines of the listing of \"" + printable(path) +
                      "\" could not be read and are left out.");
    }
    return found;
}

/// What a path of the command line stands for: itself, or all that its globs match.
std::vector<located> look_up(session& remote, const std::string& path)
{
    if (has_glob(path)) {
        return expand_glob(remote, path);
    }
    return {{path, remote.stat(or_here(path))}};
}

class lister {
public:
    lister(session& remote, const ls_arguments& given, const settings& how)
        : remote_(remote), given_(given), how_(how)
    {
    }

    void run()
    {
        const auto paths = given_.paths.empty() ? std::vector<std::string>{"."} : given_.paths;
        attempts all(paths.size() == 1);
        for (const std::string& path : paths) {
            all.attempt([&] { sort(path); });
        }
        print_files();
        headed_ = given_.recursive || folders_.size() + files_.size() > 1;
        for (const folder& one : folders_) {
            all.attempt([&] { print_folder(one.path, one.content); });
        }
        all.finish();
    }

private:
    struct folder {
        std::string path;
        std::optional<listing> content; ///< where it is known already
    };

    /// A path that is not a glob is taken for a folder: listing it tells.
    void sort(const std::string& path)
    {
        if (!has_glob(path)) {
            try {
                folders_.push_back({or_here(path), read_folder(remote_, or_here(path), how_)});
            } catch (const error::NotFolder&) {
                files_.push_back({path, remote_.stat(path)});
            }
            return;
        }
        for (located& one : expand_glob(remote_, path)) {
            const bool link = one.what.kind == entry_kind::link;
            if (one.what.kind == entry_kind::folder || (link && remote_.is_folder(one.path))) {
                folders_.push_back({std::move(one.path), {}});
            } else {
                files_.push_back(std::move(one));
            }
        }
    }

    void print_files()
    {
        std::vector<entry> entries;
        for (const located& one : files_) {
            if (how_.json) {
                print_line(to_json(one.what, one.path));
            }
            entries.push_back(one.what);
            entries.back().name = one.path;
        }
        print_entries(entries);
    }

    void print_entries(const std::vector<entry>& entries)
    {
        if (!how_.json && !entries.empty()) {
            begun_ = true;
            given_.long_form ? print_long(entries, how_) : print_names(entries, how_);
        }
    }

    void print_folder(const std::string& path, const std::optional<listing>& content)
    {
        const listing found = content ? *content : read_folder(remote_, path, how_);
        if (headed_ && !how_.json) {
            print_line((std::exchange(begun_, true) ? "\n" : "") + printable(path) + ":");
        }
        for (const entry& one : found.entries) {
            if (how_.json) {
                print_line(to_json(one, join(path, one.name)));
            }
        }
        print_entries(found.entries);
        attempts deeper(false);
        for (const entry& one : found.entries) {
            if (given_.recursive && one.kind == entry_kind::folder) {
                deeper.attempt([&] { print_folder(join(path, one.name), {}); });
            }
        }
        deeper.finish();
    }

    session& remote_;
    const ls_arguments& given_;
    const settings& how_;
    std::vector<located> files_;
    std::vector<folder> folders_;
    bool headed_ = false;
    bool begun_ = false;
};

/// The pieces that a tree is drawn with.
struct branches {
    const char* middle;
    const char* last;
    const char* past;
    const char* gap = "    ";
};

const branches& drawn_branches()
{
    static constexpr branches lines{"├── ", "└── ", "│   "};
    static constexpr branches ascii{"|-- ", "`-- ", "|   "};
    const std::string_view codes = nl_langinfo(CODESET); // NOLINT(concurrency-mt-unsafe): one thread
    return codes == "UTF-8" ? lines : ascii;
}

class tree_printer {
public:
    tree_printer(session& remote, unsigned depth, const settings& how)
        : remote_(remote), depth_(depth), how_(how)
    {
    }

    void print_below(const std::string& path, const std::string& indent, unsigned level)
    {
        const listing found = read_folder(remote_, path, how_);
        attempts all(level == 1);
        for (const entry& one : found.entries) {
            const bool last = &one == &found.entries.back();
            const std::string below = join(path, one.name);
            print_entry(one, below, indent + (last ? drawn_.last : drawn_.middle));
            if (one.kind == entry_kind::folder && (depth_ == 0 || level < depth_)) {
                all.attempt([&] { print_below(below, indent + (last ? drawn_.gap : drawn_.past), level + 1); });
            }
        }
        all.finish();
    }

    void print_sum() const
    {
        if (!how_.json) {
            print_line('\n' + counted(folders_, "folder") + ", " + counted(others_, "file"));
        }
    }

private:
    void print_entry(const entry& one, const std::string& path, const std::string& indent)
    {
        ++(one.kind == entry_kind::folder ? folders_ : others_);
        if (how_.json) {
            print_line(to_json(one, path));
            return;
        }
        const std::string target = one.link_target.empty() ? "" : " -> " + printable(one.link_target);
        print_line(indent + coloured_name(one, how_) + target);
    }

    session& remote_;
    unsigned depth_;
    const settings& how_;
    const branches& drawn_ = drawn_branches();
    std::size_t folders_ = 0;
    std::size_t others_ = 0;
};

void print_size(const std::string& path, std::uint64_t size, const settings& how, entry_kind kind)
{
    if (how.json) {
        entry sum;
        sum.name = last_segment(path);
        sum.kind = kind;
        sum.size = size;
        print_line(to_json(sum, path));
    } else {
        print_line(size_text(size, how) + '\t' + printable(path));
    }
}

std::uint64_t sum_folder(session& remote, const std::string& path, bool summarize, const settings& how,
                         attempts& all)
{
    std::uint64_t sum = 0;
    for (const entry& one : read_folder(remote, path, how).entries) {
        if (one.kind != entry_kind::folder) {
            sum += one.size.value_or(0);
            continue;
        }
        all.attempt([&] {
            const std::string below = join(path, one.name);
            const std::uint64_t size = sum_folder(remote, below, summarize, how, all);
            sum += size;
            if (!summarize) {
                print_size(below, size, how, entry_kind::folder);
            }
        });
    }
    return sum;
}

} // namespace

void ls(session& remote, const ls_arguments& given, const settings& how)
{
    lister(remote, given, how).run();
    flush_output();
}

void tree(session& remote, const tree_arguments& given, const settings& how)
{
    const std::string path = or_here(given.path);
    tree_printer printer(remote, given.depth, how);
    if (!how.json) {
        print_line(printable(path));
    }
    printer.print_below(path, "", 1);
    printer.print_sum();
    flush_output();
}

void du(session& remote, const std::vector<std::string>& paths, bool summarize, const settings& how)
{
    attempts all(false);
    attempts roots(paths.size() <= 1);
    for (const std::string& path : paths.empty() ? std::vector<std::string>{"."} : paths) {
        roots.attempt([&] {
            for (const located& one : look_up(remote, path)) {
                const bool folder = one.what.kind == entry_kind::folder;
                const std::uint64_t size = folder ? sum_folder(remote, or_here(one.path), summarize, how, all)
                                                  : one.what.size.value_or(0);
                print_size(or_here(one.path), size, how, one.what.kind);
            }
        });
    }
    flush_output();
    roots.finish();
    all.finish();
}

} // namespace qrftp::cli

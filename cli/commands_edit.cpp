#include "commands.hpp"
#include "environment.hpp"
#include "local_command.hpp"
#include "output.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>

#include <stdlib.h> // mkdtemp

namespace qrftp::cli {

namespace fs = std::filesystem;

namespace {

/// A folder of one's own, which goes away with this unless it is kept.
class temporary_folder {
public:
    temporary_folder() : path_((fs::temp_directory_path() / "qrftp-edit-XXXXXX").string())
    {
        if (mkdtemp(path_.data()) == nullptr) {
            throw LocalFileError(path_, std::error_code(errno, std::generic_category()));
        }
    }
    ~temporary_folder()
    {
        std::error_code ignored; // What stays is a copy that nobody needs.
        if (!is_kept_) {
            fs::remove_all(path_, ignored);
        }
    }
    temporary_folder(const temporary_folder&) = delete;
    temporary_folder& operator=(const temporary_folder&) = delete;

    [[nodiscard]] fs::path path() const { return path_; }
    void keep() { is_kept_ = true; }

private:
    std::string path_;
    bool is_kept_ = false;
};

/// Where the links at `path` lead to: sending to a link would replace it.
std::string follow_links(session& remote, std::string path)
{
    constexpr int most_links = 40;
    for (int followed = 0; followed < most_links; ++followed) {
        const entry what = remote.stat(path);
        if (what.kind != entry_kind::link || what.link_target.empty()) {
            return path;
        }
        const std::string whole = remote.absolute(path);
        const bool is_absolute = what.link_target.starts_with('/');
        path = is_absolute ? what.link_target : whole.substr(0, whole.rfind('/') + 1) + what.link_target;
    }
    throw std::runtime_error(fmt::format("\"{}\" leads to itself.", escape(path)));
}

/// What tells one state of a remote file from another.
struct version {
    std::optional<std::uint64_t> size;
    std::optional<timestamp> modified;

    bool operator==(const version&) const = default;
};

version version_of(session& remote, const std::string& path)
{
    return {remote.file_size(path), remote.modification_time(path)};
}

/// A change within the same second that leaves the size as it is shows in the content alone.
bool has_changed(session& remote, const std::string& path, const version& before, const std::string& content)
{
    return version_of(remote, path) != before || remote.fetch_string(path) != content;
}

std::string editor()
{
    for (const char* const name : {"VISUAL", "EDITOR"}) {
        if (std::string found = environment(name).value_or(""); !found.empty()) {
            return found;
        }
    }
    return "vi";
}

/// The editor may be a command with options of its own.
void run_editor(const fs::path& file)
{
    flush_output();
    run_program({"/bin/sh", "-c", editor() + " \"$1\"", "sh", file.string()});
}

void send_back(session& remote, const std::string& path, const fs::path& copy, const version& before,
               const std::string& content)
{
    if (has_changed(remote, path, before, content)) {
        throw std::runtime_error(
            fmt::format("\"{}\" was changed on the server in the meantime; nothing was sent.", escape(path)));
    }
    remote.send(copy, path);
}

} // namespace

void edit(session& remote, const std::string& named, const settings& options)
{
    const std::string path = follow_links(remote, named);
    const std::string name = last_segment(remote.absolute(path));
    temporary_folder folder;
    const fs::path copy = folder.path() / ("edit" + fs::path(name).extension().string());
    const version before = version_of(remote, path);
    remote.fetch(path, copy);
    const std::string content = read_file(copy);
    run_editor(copy);
    if (read_file(copy) == content) {
        note(options, fmt::format("\"{}\" was not changed.", escape(path)));
        return;
    }
    try {
        send_back(remote, path, copy, before, content);
    } catch (const std::exception&) {
        folder.keep();
        print_error(fmt::format("What you wrote is in \"{}\".", escape(copy.string())));
        throw;
    }
}

} // namespace qrftp::cli

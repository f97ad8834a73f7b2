#include "protocol.hpp"

#include "random_reader.hpp"
#include "remote_path.hpp"

namespace qrftp {

file_facts facts_of(const entry& found)
{
    file_facts facts{.size = found.size, .mode = found.mode};
    if (found.modified && found.modified->is_exact()) {
        facts.modified = found.modified->time;
    }
    return facts;
}

std::unique_ptr<protocol> protocol::open(const url& server, const session_options& options)
{
    return server.scheme == url_scheme::sftp ? open_sftp(server, options) : open_ftp(server, options);
}

std::optional<entry> protocol::follow(const std::string& path)
{
    if (is_folder(path)) {
        return entry{.name = remote_path::filename(path), .kind = entry_kind::folder};
    }
    const auto bytes = size(path);
    return bytes ? std::optional(entry{
                       .name = remote_path::filename(path), .size = bytes, .modified = modification_time(path)})
                 : std::nullopt;
}

void protocol::list(folder_queue& folders)
{
    while (const auto folder = folders.next()) {
        try {
            list(*folder, {.on_entry = [&](entry&& what) { folders.found(*folder, std::move(what)); },
                           .on_skipped = [&](std::string_view line) { folders.skipped(*folder, line); },
                           .on_restart = [&] { folders.restarted(*folder); }});
        } catch (...) {
            folders.failed(*folder, std::current_exception());
            continue;
        }
        folders.finished(*folder);
    }
}

void protocol::change(std::span<const path_change> changes,
                      const std::function<void(std::size_t, std::exception_ptr)>& on_done)
{
    for (std::size_t i = 0; i < changes.size(); ++i) {
        std::exception_ptr failure;
        try {
            apply(changes[i]);
        } catch (...) {
            failure = std::current_exception();
        }
        on_done(i, failure);
    }
}

void protocol::apply(const path_change& change)
{
    switch (change.what) {
    case path_change::kind::make_folder:
        make_folder(change.path);
        break;
    case path_change::kind::remove_file:
        remove_file(change.path);
        break;
    case path_change::kind::remove_folder:
        remove_folder(change.path);
        break;
    }
}

void protocol::make_hard_link(const std::string& /*existing*/, const std::string& path)
{
    throw NotSupported(path, {.message = "FTP has no command for hard links"});
}

bool protocol::copy_on_server(const std::string& /*from*/, const std::string& /*to*/,
                              const file_facts& /*initial*/,
                              const std::function<void(std::uint64_t)>& /*on_copied*/)
{
    return false;
}

std::unique_ptr<random_reader> protocol::open_reader(const std::string& /*path*/)
{
    return nullptr;
}

void protocol::clean_up(const std::function<void()>& work) noexcept
{
    cleaning_up_ = true;
    try {
        work();
    } catch (...) { // NOLINT(bugprone-empty-catch): the failure before it is the one to report
    }
    cleaning_up_ = false;
}

} // namespace qrftp

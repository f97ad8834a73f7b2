#include "login_callbacks.hpp"
#include "protocol.hpp"
#include "random_reader.hpp"
#include "refusal.hpp"
#include "remote_path.hpp"
#include "replace.hpp"
#include "session_access.hpp"
#include "transfer/single_file.hpp"
#include "transfer/stream_reader.hpp"
#include "transfer/verify.hpp"
#include "tree/make_parents.hpp"
#include "tree/remove.hpp"

#include <qrftp/session.hpp>

#include <algorithm>
#include <chrono>
#include <utility>

namespace qrftp {

namespace {

/// Longer limits than clocks can count are as good as a hundred years.
void check_limits_of_time(session_options& options)
{
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24) * 365 * 100;
    for (const auto& [name, limit] : {std::pair("connect_timeout", &options.connect_timeout),
                                      {"stall_timeout", &options.stall_timeout},
                                      {"total_timeout", &options.total_timeout}}) {
        if (limit->count() < 0) {
            throw InvalidOption(name, "it is negative");
        }
        *limit = std::min(*limit, longest);
    }
}

listing list_all(protocol& server, const std::string& path)
{
    listing result;
    server.list(path, {.on_entry = [&](entry&& what) { result.entries.push_back(std::move(what)); },
                       .on_skipped = [&](std::string_view line) { result.skipped.emplace_back(line); },
                       .on_restart = [&] { result = {}; }});
    return result;
}

/// Fetches a file over a login of its own, while the session may do something else.
stream_reader::source by_own_login(const url& server, const session_options& options, const std::string& path)
{
    return [server, options, path](const std::stop_token& asked_to_stop, std::uint64_t offset,
                                   const std::function<bool(std::string_view)>& on_data) {
        // Either token ends it: that of the session, and that of this fetch.
        std::stop_source either;
        const auto end = [&either] { either.request_stop(); };
        const std::stop_callback by_caller(options.stop, end);
        const std::stop_callback by_reader(asked_to_stop, end);
        session_options own = options;
        own.stop = either.get_token();
        session(server, std::move(own)).fetch(path, on_data, {.offset = offset});
    };
}

} // namespace

struct session::state {
    url location;
    session_options options;
    std::unique_ptr<protocol> server;
    std::string folder{}; ///< empty as long as it is that of the login and nobody asked the server for it

    const std::string& working_folder()
    {
        if (folder.empty()) {
            folder = server->login_folder();
        }
        return folder;
    }
    /// The absolute form of `path`, which the protocol can carry.
    [[nodiscard]] std::string absolute(const std::string& path)
    {
        server->check_name(path);
        return remote_path::absolute(path.starts_with('/') ? "" : working_folder(), path);
    }
};

protocol& session_access::server(const session& opened)
{
    return *opened.opened().server;
}

const session_options& session_access::options(const session& opened)
{
    return opened.opened().options;
}

session::session(const url& server, session_options options) : state_(std::make_unique<state>())
{
    check_limits_of_time(options);
    share_callbacks(options);
    state_->location = server;
    state_->options = std::move(options);
    state_->server = protocol::open(state_->location, state_->options);
    state_->folder = state_->server->info().login_folder;
}

session::session(std::string_view server, session_options options)
    : session(url::parse(server), std::move(options))
{
}

session::session(std::unique_ptr<state> opened) : state_(std::move(opened))
{
}

session::session(session&&) noexcept = default;
session& session::operator=(session&&) noexcept = default;
session::~session() = default;

session::state& session::opened() const
{
    if (state_ == nullptr) {
        throw Closed("session");
    }
    return *state_;
}

void session::close() noexcept
{
    state_.reset();
}

session session::clone() const
{
    const state& mine = opened();
    auto copy = std::make_unique<state>(state{mine.location, mine.options, nullptr, mine.folder});
    copy->server = protocol::open(copy->location, copy->options);
    return session(std::move(copy));
}

const url& session::location() const
{
    return opened().location;
}

server_info session::server_info()
{
    state& mine = opened();
    mine.server->login_folder();
    const auto began = std::chrono::steady_clock::now();
    mine.server->ping();
    qrftp::server_info result = mine.server->info();
    result.round_trip = std::chrono::steady_clock::now() - began;
    return result;
}

const std::string& session::working_folder() const
{
    return opened().working_folder();
}

std::string session::absolute(const std::string& path) const
{
    return opened().absolute(path);
}

std::string session::change_folder(const std::string& path)
{
    state& mine = opened();
    std::string whole = mine.absolute(path);
    mine.server->enter(whole);
    return mine.folder = std::move(whole);
}

std::optional<entry> session::find(const std::string& path)
{
    state& mine = opened();
    return mine.server->find(mine.absolute(path));
}

entry session::stat(const std::string& path)
{
    state& mine = opened();
    const std::string whole = mine.absolute(path);
    auto found = mine.server->stat(whole);
    if (!found) {
        throw NotFound(whole);
    }
    return *std::move(found);
}

bool session::exists(const std::string& path)
{
    return find(path).has_value();
}

bool session::is_folder(const std::string& path)
{
    state& mine = opened();
    return mine.server->is_folder(mine.absolute(path));
}

bool session::is_file(const std::string& path)
{
    const auto found = find(path);
    if (!found || found->kind == entry_kind::folder) {
        return false;
    }
    return found->kind != entry_kind::link || (!is_folder(path) && file_size(path));
}

std::optional<std::uint64_t> session::file_size(const std::string& path)
{
    state& mine = opened();
    return mine.server->size(mine.absolute(path));
}

std::optional<timestamp> session::modification_time(const std::string& path)
{
    state& mine = opened();
    return mine.server->modification_time(mine.absolute(path));
}

checksum_method session::checksum_support()
{
    state& mine = opened();
    return require_checksums(*mine.server, mine.location.server());
}

checksum session::checksum(const std::string& path)
{
    state& mine = opened();
    require_checksums(*mine.server, mine.location.server());
    return mine.server->ask_checksum(mine.absolute(path));
}

void session::list(const std::string& path, const std::function<void(entry&&)>& on_entry,
                   const std::function<void(std::string_view)>& on_skipped)
{
    state& mine = opened();
    mine.server->list(mine.absolute(path), {.on_entry = on_entry, .on_skipped = on_skipped});
}

listing session::list(const std::string& path)
{
    state& mine = opened();
    listing result = list_all(*mine.server, mine.absolute(path));
    std::sort(result.entries.begin(), result.entries.end(),
              [](const entry& left, const entry& right) { return left.name < right.name; });
    return result;
}

void session::name_owners(std::span<entry> entries)
{
    opened().server->name_owners(entries);
}

void session::make_folder(const std::string& path, bool parents)
{
    state& mine = opened();
    const std::string whole = mine.absolute(path);
    if (parents) {
        make_with_parents(*mine.server, whole);
    } else {
        mine.server->make_folder(whole);
    }
}

void session::remove_folder(const std::string& path, bool recursive)
{
    state& mine = opened();
    const std::string whole = mine.absolute(path);
    if (!recursive) {
        mine.server->remove_folder(whole);
        return;
    }
    for (const std::string& kept : {mine.server->login_folder(), mine.working_folder()}) {
        if (remote_path::is_or_contains(whole, kept)) {
            throw PermissionDenied(
                whole, {.message = "refusing to remove the folder of the login, the working folder, "
                                   "or one that holds it"});
        }
    }
    remove_tree(*mine.server, whole);
}

void session::remove_file(const std::string& path)
{
    state& mine = opened();
    mine.server->remove_file(mine.absolute(path));
}

void session::rename(const std::string& from, const std::string& to, bool replace)
{
    state& mine = opened();
    const std::string source = mine.absolute(from);
    const std::string target = mine.absolute(to);
    if (const auto there = mine.server->find(target); there && there->kind == entry_kind::folder) {
        replace ? throw IsFolder(target) : throw AlreadyExists(target);
    }
    replace_file(*mine.server, source, target, replace);
}

void session::fetch(const std::string& remote_path, const std::filesystem::path& local_path,
                    const transfer_options& options)
{
    state& mine = opened();
    fetch_file(*this, mine.absolute(remote_path), local_path, options);
}

void session::fetch(const std::string& remote_path, const std::function<bool(std::string_view)>& on_data,
                    const transfer_options& options)
{
    fetch_data(*this, opened().absolute(remote_path), on_data, options);
}

std::string session::fetch_string(const std::string& remote_path, const transfer_options& options)
{
    std::string result;
    fetch(
        remote_path,
        [&](std::string_view bytes) {
            result += bytes;
            return true;
        },
        options);
    return result;
}

remote_file session::open(const std::string& remote_path) const
{
    state& mine = opened();
    const std::string path = mine.absolute(remote_path);
    if (auto reader = mine.server->open_reader(path)) {
        return remote_file(std::move(reader));
    }
    const auto there = mine.server->stat(path);
    if (!there) {
        throw NotFound(path);
    }
    if (there->kind == entry_kind::folder) {
        throw IsFolder(path);
    }
    return remote_file(std::make_unique<stream_reader>(by_own_login(mine.location, mine.options, path),
                                                       mine.server->size(path)));
}

void session::send(const std::filesystem::path& local_path, const std::string& remote_path,
                   const transfer_options& options)
{
    state& mine = opened();
    send_file(*this, local_path, mine.absolute(remote_path), options);
}

void session::send(const std::function<std::size_t(std::span<char>)>& read, const std::string& remote_path,
                   const transfer_options& options)
{
    send_data(*this, read, opened().absolute(remote_path), options);
}

void session::send_string(std::string_view content, const std::string& remote_path,
                          const transfer_options& options)
{
    send(
        [&](std::span<char> buffer) {
            const std::size_t count = content.copy(buffer.data(), buffer.size());
            content.remove_prefix(count);
            return count;
        },
        remote_path, options);
}

std::string session::system_type()
{
    return opened().server->system_type();
}

} // namespace qrftp

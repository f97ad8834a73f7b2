#include "names.hpp"
#include "remote.hpp"
#include "transfer.hpp"

#include <foundation/core/except/Exception.hpp>
#include <qrftp/session.hpp>

#include <algorithm>
#include <chrono>
#include <utility>

namespace qrftp {

using foundation::core::except::raise;

namespace {

void require(const refusal& refused, remote& server, const std::string& path, expected what)
{
    if (refused) {
        explain(server, path, what, *refused);
    }
}

void list_folder(remote& server, const std::string& path, const std::function<void(entry&&)>& found,
                 const std::function<void(std::string_view)>& skipped, const std::function<void()>& restart)
{
    const auto ask = [&] {
        listing_parser parser(server.format(), found, skipped);
        return server.list(path, parser, restart);
    };
    const listing_format format = server.format();
    refusal refused = ask();
    if (refused && server.format() != format) {
        refused = ask();
    }
    require(refused, server, path, expected::folder);
}

listing list_all(remote& server, const std::string& path)
{
    listing result;
    list_folder(
        server, path, [&](entry&& found) { result.entries.push_back(std::move(found)); },
        [&](std::string_view line) { result.skipped.emplace_back(line); }, [&] { result = {}; });
    return result;
}

void make_with_parents(remote& server, const std::string& path)
{
    refusal refused = server.make_folder(path);
    if (!refused || server.is_folder(path)) {
        return;
    }
    const std::string above = names::parent(path);
    if (!server.find(above)) {
        make_with_parents(server, above);
        refused = server.make_folder(path);
    }
    require(refused, server, path, expected::nothing);
}

void remove_with_content(remote& server, const std::string& path, int depth)
{
    if (depth > names::deepest) {
        raise<error::Refused>(path, answer{.words = "its folders lie too deep"});
    }
    for (const entry& found : list_all(server, path).entries) {
        names::check(found.name, "the name");
        const std::string below = names::join(path, found.name);
        if (found.kind == entry_kind::folder) {
            remove_with_content(server, below, depth + 1);
        } else {
            require(server.remove_file(below), server, below, expected::file);
        }
    }
    require(server.remove_folder(path), server, path, expected::empty_folder);
}

} // namespace

session::session(url location, options how) : session(remote::open(std::move(location), std::move(how)))
{
}

session::session(const std::string& location, options how) : session(url::parse(location), std::move(how))
{
}

session::session(std::unique_ptr<remote> opened) : remote_(std::move(opened))
{
}

session::session(session&&) noexcept = default;
session& session::operator=(session&&) noexcept = default;
session::~session() = default;

session session::another() const
{
    session result(remote_->location(), remote_->how());
    result.remote_->folder = remote_->folder;
    return result;
}

const url& session::location() const
{
    return remote_->location();
}

connection_info session::about()
{
    const auto began = std::chrono::steady_clock::now();
    remote_->ping();
    connection_info result = remote_->info();
    result.round_trip = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    return result;
}

const std::string& session::working_folder() const
{
    return remote_->folder;
}

std::string session::absolute(const std::string& path) const
{
    return names::absolute(remote_->folder, path);
}

std::string session::change_folder(const std::string& path)
{
    const std::string whole = absolute(path);
    require(remote_->enter(whole), *remote_, whole, expected::folder);
    return remote_->folder = whole;
}

std::optional<entry> session::find(const std::string& path)
{
    return remote_->find(absolute(path));
}

entry session::stat(const std::string& path)
{
    const std::string whole = absolute(path);
    auto found = remote_->find(whole);
    if (!found) {
        raise<error::Missing>(whole);
    }
    return *std::move(found);
}

bool session::exists(const std::string& path)
{
    return find(path).has_value();
}

bool session::is_folder(const std::string& path)
{
    return remote_->is_folder(absolute(path));
}

bool session::is_file(const std::string& path)
{
    const std::string whole = absolute(path);
    const auto found = remote_->find(whole);
    return found && found->kind != entry_kind::folder &&
           // OpenSSH tells a size of folders, too.
           (found->kind != entry_kind::link || (remote_->enter(whole) && remote_->size(whole)));
}

std::optional<std::uint64_t> session::file_size(const std::string& path)
{
    return remote_->size(absolute(path));
}

std::optional<timestamp> session::modification_time(const std::string& path)
{
    return remote_->modification_time(absolute(path));
}

void session::list(const std::string& path, const std::function<void(entry&&)>& found,
                   const std::function<void(std::string_view)>& skipped)
{
    list_folder(*remote_, absolute(path), found, skipped, {});
}

listing session::list(const std::string& path, list_order order)
{
    listing result = list_all(*remote_, absolute(path));
    if (order == list_order::by_name) {
        std::sort(result.entries.begin(), result.entries.end(),
                  [](const entry& left, const entry& right) { return left.name < right.name; });
    }
    return result;
}

void session::make_folder(const std::string& path, bool parents)
{
    const std::string whole = absolute(path);
    if (parents) {
        make_with_parents(*remote_, whole);
    } else {
        require(remote_->make_folder(whole), *remote_, whole, expected::nothing);
    }
}

void session::remove_folder(const std::string& path, bool recursive)
{
    const std::string whole = absolute(path);
    if (!recursive) {
        require(remote_->remove_folder(whole), *remote_, whole, expected::empty_folder);
        return;
    }
    if (whole == "/") {
        raise<error::Denied>(whole, answer{.words = "nobody means to remove everything"});
    }
    // Only a listing tells a link to a folder from the folder, whose content would be lost.
    const auto found = remote_->find_in_parent(whole);
    if (!found) {
        raise<error::Missing>(whole);
    }
    if (found->kind != entry_kind::folder) {
        raise<error::NotFolder>(whole);
    }
    remove_with_content(*remote_, whole, 0);
}

void session::remove_file(const std::string& path)
{
    const std::string whole = absolute(path);
    require(remote_->remove_file(whole), *remote_, whole, expected::file);
}

void session::rename(const std::string& from, const std::string& to, bool replace)
{
    const std::string source = absolute(from);
    const std::string target = absolute(to);
    if (const auto there = remote_->find(target)) {
        if (!replace) {
            raise<error::Exists>(target);
        }
        if (there->kind == entry_kind::folder) {
            raise<error::IsFolder>(target);
        }
    }
    rename_over(*remote_, source, target);
}

void session::fetch(const std::string& remote_path, const std::filesystem::path& local_path,
                    const transfer_options& how)
{
    fetch_file(*remote_, absolute(remote_path), local_path, how);
}

void session::fetch(const std::string& remote_path, const std::function<bool(std::string_view)>& take)
{
    const std::string path = absolute(remote_path);
    request wanted{.about = path};
    wanted.take = [&](std::string_view bytes) {
        if (!take(bytes)) {
            raise<error::Cancelled>(path);
        }
    };
    require(remote_->fetch(path, wanted), *remote_, path, expected::file);
}

void session::send(const std::filesystem::path& local_path, const std::string& remote_path,
                   const transfer_options& how)
{
    send_file(*remote_, local_path, absolute(remote_path), how);
}

std::string session::system_type()
{
    return remote_->system_type();
}

} // namespace qrftp

#include "replace.hpp"

#include "refusal.hpp"
#include "remote_path.hpp"

#include <fmt/format.h>

namespace qrftp {

namespace {

/// Whether the error is the server's own no, after which everything is as it was.
bool is_refusal(const error& failure)
{
    switch (failure.cause()) {
    case error_cause::refused:
    case error_cause::already_exists:
    case error_cause::permission_denied:
    case error_cause::not_found:
    case error_cause::not_supported:
    case error_cause::is_folder:
        return true;
    default:
        return false;
    }
}

/// What the server said, with what helps where a transfer goes to a temporary name that is renamed in the end.
response with_advice(const error& failure, const std::string& from)
{
    response said = said_by(failure);
    if (remote_path::is_temporary_name(remote_path::filename(from))) {
        said.message += "; if it refuses to rename, --in-place writes to the name itself";
    }
    return said;
}

/// After a failure: puts the old file back under its name, unless `from` has it by now. Returns whether it has.
bool put_back(protocol& server, const std::string& from, const std::string& aside, const std::string& to,
              const error& why)
{
    bool settled = false;
    bool replaced = false;
    server.clean_up([&] {
        if (!server.find(to)) {
            server.rename(aside, to);
        } else if (server.find(aside) && !server.find(from)) {
            replaced = true; // The renaming was carried out before the connection broke.
            server.remove_file(aside);
        }
        settled = true;
    });
    if (!settled && !replaced) {
        throw Refused(to, {why.reply_code(),
                           fmt::format("{} The file that was there may now be \"{}\"", why.what(), aside)});
    }
    return replaced;
}

/// Moves what has the name `to` aside, and gives the name to `from`.
void replace_by_moving_aside(protocol& server, const std::string& from, const std::string& to)
{
    const std::string aside = remote_path::join(remote_path::parent(to), remote_path::aside_name());
    try {
        server.rename(to, aside);
    } catch (const error& failure) {
        if (is_refusal(failure)) {
            throw_refusal(server, to, expected::new_file, with_advice(failure, from));
        }
        put_back(server, from, aside, to, failure); // It may have been carried out before the connection broke.
        throw;
    }
    try {
        server.rename(from, to);
    } catch (const error& failure) {
        if (!put_back(server, from, aside, to, failure)) {
            throw;
        }
        return;
    }
    server.clean_up([&] { server.remove_file(aside); });
}

} // namespace

void replace_file(protocol& server, const std::string& from, const std::string& to, bool may_replace)
{
    if (!may_replace && server.find(to)) {
        throw AlreadyExists(to);
    }
    try {
        server.rename(from, to);
        return;
    } catch (const error& failure) {
        if (!is_refusal(failure)) {
            throw;
        }
        const response said = said_by(failure);
        // No listing of the folder, which may be long, unless something is wrong.
        if (!server.size(from) && !server.find(from)) {
            throw_refusal(server, from, expected::file, said);
        }
        const auto there = server.lstat(to);
        if (!may_replace || !there || there->kind == entry_kind::folder) {
            throw_refusal(server, to, expected::new_file, there ? said : with_advice(failure, from));
        }
        if (there->kind == entry_kind::link) {
            // Some servers would move what the link leads to.
            throw Refused(to,
                          {failure.reply_code(), "it is a symbolic link, which this server does not replace; "
                                                 "writing in place (--in-place) goes to what it leads to"});
        }
    }
    replace_by_moving_aside(server, from, to);
}

void replace_link(protocol& server, const std::string& target, const std::string& path, bool may_replace)
{
    server.check_name(target);
    if (!server.keeps_link_targets() && !target.starts_with('/')) {
        throw NotSupported(path, {.message = "SITE SYMLINK does not keep a relative target"});
    }
    try {
        return server.make_link(target, path);
    } catch (const AlreadyExists&) {
        if (!may_replace) {
            throw;
        }
    }
    const std::string temporary = remote_path::join(remote_path::parent(path), remote_path::temporary_name());
    server.make_link(target, temporary);
    try {
        replace_file(server, temporary, path, true);
    } catch (...) {
        server.clean_up([&] { server.remove_file(temporary); });
        throw;
    }
}

} // namespace qrftp

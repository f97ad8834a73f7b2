#include "refusal.hpp"

#include "remote_path.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace qrftp {

namespace {

bool mentions(const response& said, std::string_view words)
{
    return said.message.find(words) != std::string::npos;
}

/// FTP: a reply code that may mean that the server does not allow it (RFC 959, 4.2.2). SFTP has a status for
/// it, but some servers call it a failure like any other, and only say so.
bool may_mean_denied(const response& said)
{
    static constexpr std::array codes{3L, 530L, 532L, 550L, 553L};
    return std::find(codes.begin(), codes.end(), said.code) != codes.end() ||
           mentions(said, "ermission denied");
}

bool is_empty(protocol& server, const std::string& path)
{
    bool empty = true;
    server.list(path, {.on_entry = [&](const entry&) { empty = false; },
                       .on_skipped = [&](std::string_view) { empty = false; },
                       .on_restart = [&] { empty = true; }});
    return empty;
}

void throw_for_what_is_there(protocol& server, const std::string& path, expected what, entry_kind kind,
                             const response& said)
{
    switch (what) {
    case expected::anything:
        break;
    case expected::nothing:
        throw AlreadyExists(path, said);
    case expected::file:
    case expected::new_file:
        if (kind == entry_kind::folder) {
            throw IsFolder(path, said);
        }
        if (kind == entry_kind::link && what == expected::file && !server.size(path)) {
            throw NotFound(path, said); // what the link leads to
        }
        break;
    case expected::folder:
    case expected::empty_folder:
        if (kind == entry_kind::file || kind == entry_kind::other) {
            throw NotFolder(path, said);
        }
        // A listing may leave something out that the server knows of.
        if (what == expected::empty_folder && kind == entry_kind::folder &&
            (mentions(said, "ot empty") || !is_empty(server, path))) {
            throw NotEmpty(path, said);
        }
        break;
    }
}

} // namespace

response said_by(const error& failure)
{
    return {failure.reply_code(), failure.server_message()};
}

void throw_refusal(protocol& server, const std::string& path, expected what, const response& said)
{
    if (const auto found = server.find(path)) {
        throw_for_what_is_there(server, path, what, found->kind, said);
    } else if (what == expected::nothing || what == expected::new_file) {
        if (const std::string above = remote_path::parent(path); !server.find(above)) {
            throw NotFound(above, said);
        }
    } else if (!mentions(said, "ermission denied")) {
        throw NotFound(path, said);
    }
    if (may_mean_denied(said)) {
        throw PermissionDenied(path, said);
    }
    throw Refused(path, said);
}

} // namespace qrftp

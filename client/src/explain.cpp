#include "names.hpp"
#include "remote.hpp"

#include <foundation/core/except/Exception.hpp>

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>
#include <array>

namespace qrftp {

using foundation::core::except::raise;

namespace {

bool is_empty(remote& server, const std::string& path)
{
    bool empty = true;
    listing_parser parser(
        server.format(), [&](const entry&) { empty = false; }, [&](std::string_view) { empty = false; });
    return !server.list(path, parser, [&] { empty = true; }) && empty;
}

bool says_denied(const answer& said)
{
    static constexpr std::array codes{530L, 532L, 550L, 553L}; // RFC 959, 4.2.2
    return std::find(codes.begin(), codes.end(), said.reply) != codes.end() ||
           said.words.find("ermission denied") != std::string::npos;
}

void explain_what_is_there(remote& server, const std::string& path, expected what, entry_kind kind,
                           const answer& said)
{
    const bool folder = kind == entry_kind::folder;
    switch (what) {
    case expected::nothing:
        raise<error::Exists>(path, said);
    case expected::file:
    case expected::new_file:
        if (folder) {
            raise<error::IsFolder>(path, said);
        }
        if (kind == entry_kind::link && said.words.find("No such file") != std::string::npos) {
            raise<error::Missing>(path, said); // what the link leads to
        }
        break;
    case expected::folder:
    case expected::empty_folder:
        if (kind == entry_kind::file || kind == entry_kind::other) {
            raise<error::NotFolder>(path, said);
        }
        // A listing may leave something out that the server knows of.
        if (what == expected::empty_folder && folder &&
            (!is_empty(server, path) || boost::algorithm::icontains(said.words, "not empty"))) {
            raise<error::NotEmpty>(path, said);
        }
        break;
    }
}

} // namespace

void explain(remote& server, const std::string& path, expected what, const answer& said)
{
    if (const auto found = server.find(path)) {
        explain_what_is_there(server, path, what, found->kind, said);
    } else if (what == expected::nothing || what == expected::new_file) {
        if (const std::string above = names::parent(path); !server.find(above)) {
            raise<error::Missing>(above, said);
        }
    } else if (said.words.find("ermission denied") == std::string::npos) {
        raise<error::Missing>(path, said);
    }
    if (says_denied(said)) {
        raise<error::Denied>(path, said);
    }
    raise<error::Refused>(path, said);
}

} // namespace qrftp

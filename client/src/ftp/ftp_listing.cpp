#include "ftp.hpp"
#include "listing_text.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <fmt/format.h>

#include <utility>

namespace qrftp::ftp {

namespace {

/// Some servers say that a listing went well although it did not: vsftpd of a folder that it may not open,
/// pure-ftpd of one with more entries than it lists.
void check_listing_end(const std::string& path, const reply& last)
{
    const std::string words = last.said().message;
    for (const char* const sign : {"failed to open", "truncated"}) {
        if (boost::algorithm::icontains(words, sign)) {
            throw IncompleteListing(path, fmt::format("the server said \"{}\"", words), last.said());
        }
    }
}

} // namespace

void ftp::list(const std::string& path, const listing_sink& sink)
{
    const request_result result = try_list(path, sink);
    if (!result.is_done()) {
        throw_refusal(*this, path, expected::folder, result.said());
    }
}

request_result ftp::try_list(const std::string& path, const listing_sink& sink)
{
    if (has_mlst_) {
        request_result result = list_by("MLSD", path, sink);
        if (result.is_done() || !result.last_reply().is_unknown_command()) {
            return result;
        }
        has_mlst_ = false; // It is advertised and missing.
    }
    if (lists_hidden_ == support::unknown) {
        return probe_hidden(path, sink);
    }
    return list_by(lists_hidden_ == support::yes ? "LIST -a" : "LIST", path, sink);
}

/// Some servers leave files out whose names begin with a dot, unless they are asked for. Others take "-a" for a
/// name: they refuse, or list nothing but a complaint.
request_result ftp::probe_hidden(const std::string& path, const listing_sink& sink)
{
    std::vector<std::string> skipped;
    bool found = false;
    listing_sink probe = sink;
    probe.on_entry = [&](entry&& what) {
        found = true;
        sink.on_entry(std::move(what));
    };
    probe.on_skipped = [&](std::string_view line) { skipped.emplace_back(line); };
    if (sink.on_restart) {
        probe.on_restart = [&] {
            found = false;
            skipped.clear();
            sink.on_restart();
        };
    }
    const auto list = [&](const char* command) {
        skipped.clear();
        return list_by(command, path, probe);
    };
    request_result result = list("LIST -a");
    lists_hidden_ = found ? support::yes : support::unknown;
    const bool not_entered = result.code == CURLE_REMOTE_ACCESS_DENIED;
    if (!found && !not_entered) {
        result = list("LIST");
        lists_hidden_ = found ? support::no : support::unknown;
    }
    for (const std::string& line : skipped) {
        sink.on_skipped ? sink.on_skipped(line) : void();
    }
    return result;
}

/// Returns a refusal; throws where a listing began and did not end as it should.
request_result ftp::list_by(const char* command, const std::string& path, const listing_sink& sink)
{
    const bool by_mlsd = command == std::string_view("MLSD");
    const std::uint64_t limit = connection_.options().listing_limit;
    std::uint64_t read = 0;
    listing_parser parser(by_mlsd ? listing_format::mlsd : listing_format::list, sink.on_entry,
                          sink.on_skipped);
    request wanted{.subject = path, .path = path.ends_with('/') ? path : path + '/', .list_command = command};
    // LIST may take a name for a pattern or for several, and list a file as if it were a folder's content.
    wanted.change_directory = !by_mlsd;
    wanted.on_data = [&](std::string_view bytes) {
        read += bytes.size();
        if (read > limit) {
            throw IncompleteListing(path, fmt::format("it is longer than {} bytes (listing_limit)", limit));
        }
        parser.feed(bytes);
    };
    if (sink.on_restart) {
        wanted.restart = [&] {
            read = 0;
            parser.restart();
            sink.on_restart();
            return true;
        };
    }
    request_result result = run(std::move(wanted));
    if (result.is_done()) {
        parser.finish();
        check_listing_end(path, result.last_reply());
    }
    return result;
}

} // namespace qrftp::ftp

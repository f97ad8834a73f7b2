#include "../remote_path.hpp"
#include "ftp.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

/// What `ftp` asks and sets of files besides their names and their content.
namespace qrftp::ftp {

namespace {

/// SITE splits its arguments at blanks, except between double quotes.
std::string site_argument(const std::string& text)
{
    if (text.find_first_of("\"\\") != std::string::npos) {
        throw InvalidName(text, "a quote or a backslash, which SITE SYMLINK cannot carry");
    }
    return text.find(' ') == std::string::npos ? text : '"' + text + '"';
}

} // namespace

void ftp::set_facts(const std::string& path, const file_facts& facts)
{
    fact_setter_.set(path, facts);
}

void ftp::require_facts(const std::string& path, const file_facts& facts)
{
    const auto check = [&](const std::optional<reply>& answer, const char* commands) {
        if (!answer && find(path)) {
            throw NotSupported(path, {.message = fmt::format("it has neither {}", commands)});
        }
        if (!answer) {
            throw NotFound(path);
        }
        if (!answer->is_completion()) {
            throw_refusal(*this, path, expected::anything, answer->said());
        }
    };
    if (facts.mode) {
        check(fact_setter_.set_mode(path, *facts.mode), "MFF UNIX.mode nor SITE CHMOD");
    }
    if (facts.modified) {
        check(fact_setter_.set_time(path, *facts.modified), "MFMT nor MDTM with a time");
    }
}

void ftp::make_link(const std::string& target, const std::string& path)
{
    const auto& features = info().features;
    if (std::none_of(features.begin(), features.end(), [](const std::string& feature) {
            return boost::algorithm::iequals(feature, "SITE SYMLINK");
        })) {
        throw NotSupported(path, {.message = "it has no SITE SYMLINK"});
    }
    // The server would see a relative target from its working folder.
    const std::string whole = remote_path::absolute(remote_path::parent(path), target);
    const std::string command = fmt::format("SITE SYMLINK {} {}", site_argument(whole), site_argument(path));
    const request_result result = send_unchecked(path, {command});
    if (!result.last_reply().is_completion()) {
        if (!find(path) && !find(whole)) {
            throw NotFound(whole, result.last_reply().said());
        }
        throw_refusal(*this, path, expected::nothing, result.last_reply().said());
    }
}

/// Throws where nothing of that name was found in a folder that is there and cannot be listed.
void ftp::refuse_unreadable_parent(const std::string& path)
{
    const auto refusal = std::exchange(parent_refusal_, std::nullopt);
    // Some servers refuse to list an empty folder.
    const auto says = [&](const char* words) { return boost::algorithm::icontains(refusal->message, words); };
    if (!refusal || says("no such") || says("not found") || says("no files")) {
        return;
    }
    const auto parent = find(remote_path::parent(path));
    if (parent && parent->kind != entry_kind::file) {
        refusal->code < code::file_unavailable ? throw Refused(path, *refusal)
                                               : throw PermissionDenied(path, *refusal);
    }
}

std::optional<entry> ftp::stat(const std::string& path)
{
    std::optional<entry> found = find(path);
    if (!found) {
        refuse_unreadable_parent(path);
    } else if (found->kind == entry_kind::link && found->link_target.empty()) {
        found->link_target = list_link_target(path);
    }
    return found;
}

std::optional<std::string> ftp::read_link(const std::string& path)
{
    const std::optional<entry> found = lstat(path);
    if (!found || found->kind != entry_kind::link) {
        return std::nullopt;
    }
    std::string target = found->link_target.empty() ? list_link_target(path) : found->link_target;
    if (target.empty()) {
        throw NotSupported(path, {.message = "its listings do not tell where links lead"});
    }
    return target;
}

/// MLSD tells where a link leads only on few servers; LIST does on most. Empty where it does not.
std::string ftp::list_link_target(const std::string& path)
{
    const std::string name = remote_path::filename(path);
    std::string target;
    list_by(lists_hidden_ == support::no ? "LIST" : "LIST -a", remote_path::parent(path),
            {.on_entry =
                 [&](entry&& found) {
                     if (found.name == name) {
                         target = std::move(found.link_target);
                     }
                 },
             .on_restart = [&] { target.clear(); }});
    return target;
}

disk_space ftp::space(const std::string& path)
{
    if (!has_feature(info(), "AVBL")) {
        throw NotSupported(path, {.message = "it has no AVBL"});
    }
    const request_result result = send_unchecked(path, {"AVBL " + path}, true);
    const auto available = parse_size(result.last_reply());
    if (!available) {
        throw_refusal(*this, path, expected::anything, result.last_reply().said());
    }
    return {.available = *available};
}

} // namespace qrftp::ftp

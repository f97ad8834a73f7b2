#include "ftp.hpp"

#include "../remote_path.hpp"
#include "carry.hpp"
#include "file_fetch.hpp"
#include "file_send.hpp"
#include "listing_text.hpp"

#include <boost/algorithm/string/replace.hpp>

#include <algorithm>
#include <utility>

namespace qrftp {

std::unique_ptr<protocol> open_ftp(const url& server, const session_options& options)
{
    return std::make_unique<ftp::ftp>(server, options);
}

} // namespace qrftp

namespace qrftp::ftp {

namespace {

/// The one entry in the answer to MLST.
std::optional<entry> read_mlst(const reply& answer, const std::string& path)
{
    if (!answer.is_completion() || answer.lines.size() < 3) {
        return std::nullopt;
    }
    // The facts stand behind a blank, the name behind them may be a whole path.
    const std::string& line = answer.lines[1];
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t end = std::min(line.find(' ', begin), line.size());
    std::string facts = line.substr(begin, end - begin);
    for (const char* const self : {"type=cdir", "type=pdir"}) {
        boost::algorithm::ireplace_first(facts, self, "type=dir");
    }
    entry found;
    if (read_mlsd_line(facts + " x", found) != line_content::entry) {
        return std::nullopt;
    }
    found.name = remote_path::filename(path);
    return found;
}

/// ProFTPD answers for a link with the kind of what it leads to, and the size and the mode of the link.
bool may_be_link(const entry& told)
{
    return told.mode == std::filesystem::perms::all;
}

/// Without a question to the server: whoever renames knows better what there is.
[[noreturn]] void throw_refused_rename(const std::string& path, const response& said)
{
    if (said.code == code::file_unavailable || said.code == code::file_name_not_allowed) {
        throw PermissionDenied(path, said);
    }
    throw Refused(path, said);
}

} // namespace

ftp::ftp(const url& server, const session_options& options)
    : connection_(server, options), fact_setter_(
                                        connection_.info(), connection_.server(),
                                        [this](const std::string& path, const std::string& command) {
                                            return send_unchecked(path, {command}, true).last_reply();
                                        },
                                        [this](const std::string& sentence) {
                                            if (connection_.options().on_warning) {
                                                connection_.options().on_warning(sentence);
                                            }
                                        }),
      checksums_(connection_.info(),
                 [this](const std::string& path, std::vector<std::string> commands) {
                     return send_unchecked(path, std::move(commands), true).last_reply();
                 }),
      has_mlst_(has_feature(connection_.info(), "MLST"))
{
}

void ftp::check_name(std::string_view path) const
{
    check_text(path, std::string(path));
}

request_result ftp::run(request request)
{
    request.cancellable = !is_cleaning_up();
    request.repeatable = request.repeatable || is_cleaning_up(); // What is already gone does no harm then.
    return connection_.run(request);
}

request_result ftp::send_unchecked(const std::string& subject, std::vector<std::string> commands,
                                   bool repeatable)
{
    return run({.subject = subject, .commands = std::move(commands), .repeatable = repeatable});
}

void ftp::send_checked(const std::string& path, const std::string& command, expected what)
{
    const request_result result = send_unchecked(path, {command});
    if (!result.last_reply().is_completion()) {
        throw_refusal(*this, path, what, result.last_reply().said());
    }
}

void ftp::ping()
{
    send_unchecked("the connection", {"NOOP"}, true);
}

request_result ftp::try_enter(const std::string& path)
{
    request_result result = send_unchecked(path, {"CWD " + path}, true);
    if (result.last_reply().is_completion()) {
        // Back at once: a folder that the server stands in could not be removed.
        send_unchecked(path, {"CWD " + info().login_folder}, true);
    }
    return result;
}

void ftp::enter(const std::string& path)
{
    const request_result result = try_enter(path);
    if (!result.last_reply().is_completion()) {
        throw_refusal(*this, path, expected::folder, result.last_reply().said());
    }
}

/// Without a listing: what is asked about is often a new file, in a folder of many.
bool ftp::is_folder(const std::string& path)
{
    const auto told = ask_mlst(path);
    return told && told->kind != entry_kind::link ? told->kind == entry_kind::folder
                                                  : try_enter(path).last_reply().is_completion();
}

std::optional<entry> ftp::ask_mlst(const std::string& path)
{
    if (!has_mlst_) {
        return std::nullopt;
    }
    const request_result result = send_unchecked(path, {"MLST " + path}, true);
    auto found = read_mlst(result.last_reply(), path);
    has_mlst_ = found || !result.last_reply().is_unknown_command();
    return found;
}

std::optional<entry> ftp::find(const std::string& path)
{
    auto told = ask_mlst(path);
    if (told && !may_be_link(*told)) {
        return told;
    }
    auto found = has_mlst_ ? find_in_parent(path) : find_without_mlst(path);
    return found ? found : told;
}

std::optional<entry> ftp::lstat(const std::string& path)
{
    auto found = find_in_parent(path);
    return found ? found : find(path);
}

std::optional<entry> ftp::find_replaced(const std::string& path)
{
    auto told = ask_mlst(path);
    if (told ? may_be_link(*told) : !has_mlst_ && size(path)) {
        return find_in_parent(path);
    }
    return told;
}

/// A parent folder that cannot be listed holds nothing; `parent_refusal_` says why.
std::optional<entry> ftp::find_in_parent(const std::string& path)
{
    const std::string name = remote_path::filename(path);
    if (path == "/") {
        return entry{.name = name, .kind = entry_kind::folder};
    }
    std::optional<entry> result;
    const auto on_entry = [&](entry&& found) {
        if (found.name == name) {
            result = std::move(found);
        }
    };
    const request_result listed =
        try_list(remote_path::parent(path), {.on_entry = on_entry, .on_restart = [&] { result.reset(); }});
    parent_refusal_ = listed.is_done() ? std::nullopt : std::optional(listed.said());
    return result;
}

std::optional<entry> ftp::find_without_mlst(const std::string& path)
{
    if (try_enter(path).last_reply().is_completion()) {
        return entry{.name = remote_path::filename(path), .kind = entry_kind::folder};
    }
    if (const auto bytes = size(path)) {
        return entry{.name = remote_path::filename(path), .size = bytes, .modified = modification_time(path)};
    }
    return find_in_parent(path);
}

std::optional<std::uint64_t> ftp::size(const std::string& path)
{
    return parse_size(send_unchecked(path, {"TYPE I", "SIZE " + path}, true).last_reply());
}

std::optional<timestamp> ftp::modification_time(const std::string& path)
{
    const request_result result = send_unchecked(path, {"MDTM " + path}, true);
    const reply& answer = result.last_reply();
    return answer.code == code::file_status ? read_mlsd_time(answer.text()) : std::nullopt;
}

checksum ftp::ask_checksum(const std::string& path)
{
    response said{.message = "it has no command for checksums"};
    if (checksums_.method()) {
        if (auto told = checksums_.ask(path, said)) {
            return *std::move(told);
        }
        if (said.code >= code::file_unavailable) {
            throw_refusal(*this, path, expected::file, said);
        }
    }
    throw NotSupported(path, said);
}

void ftp::make_folder(const std::string& path)
{
    send_checked(path, "MKD " + path, expected::nothing);
}

void ftp::remove_folder(const std::string& path)
{
    send_checked(path, "RMD " + path, expected::empty_folder);
}

void ftp::remove_file(const std::string& path)
{
    send_checked(path, "DELE " + path, expected::file);
}

/// Two requests: a server may remember an earlier RNFR when one is refused, and RNTO would rename something
/// else.
void ftp::rename(const std::string& from, const std::string& to)
{
    for (bool again = true;; again = false) {
        const request_result first = send_unchecked(from, {"RNFR " + from}, true);
        if (first.last_reply().code != code::pending_further_information) {
            throw_refused_rename(from, first.last_reply().said());
        }
        request_result second;
        try {
            second = run({.subject = from, .commands = {"RNTO " + to}, .needs_same_connection = true});
        } catch (const ConnectionLost& lost) {
            // A command that is answered with the server's goodbye has not been carried out.
            if (!again || lost.reply_code() != code::service_not_available) {
                throw;
            }
            continue;
        }
        if (second.last_reply().is_completion()) {
            return;
        }
        // It reached the server on another connection, where it means nothing.
        if (!again || !second.reconnected) {
            throw_refused_rename(to, second.last_reply().said());
        }
    }
}

void ftp::fetch(download_batch& files)
{
    carry(files, [&](const download_batch::part& what) { fetch_file(*this, what, files); });
}

void ftp::send(upload_batch& files)
{
    carry(files, [&](const upload_batch::part& what) { send_file(*this, what, files); });
}

std::string ftp::system_type()
{
    const request_result result = send_unchecked("the system type", {"SYST"}, true);
    return result.last_reply().is_completion() ? std::string(result.last_reply().text()) : "";
}

} // namespace qrftp::ftp

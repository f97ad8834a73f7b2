#include "file_send.hpp"

#include "../replace.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp::ftp {

namespace {

/// One upload.
class file_send {
public:
    file_send(ftp& server, upload& file) : server_(server), file_(file) {}

    void run(upload_batch& files);

private:
    void begin();
    /// Sends until the server has all of the content.
    void send_content(upload_batch& files);
    [[nodiscard]] std::optional<file_facts> find_what_is_there() const;
    void find_break();
    void send_first_piece();
    void store_rest();
    [[nodiscard]] request_result store(byte_range range);
    [[noreturn]] void throw_refused_store(const request_result& result) const;
    void check_stored(const request_result& result) const;
    void discard(const std::exception_ptr& why) const;

    ftp& server_;
    upload& file_;
    byte_range range_;
    std::uint64_t told_ = 0; ///< up to where progress was told
    std::uint64_t read_ = 0; ///< up to where the source was read
    bool advanced_ = false;  ///< since the connection broke last
    bool is_torn_ = false;   ///< what is missing cannot be read again
    bool complete_ = false;  ///< nothing was missing
    std::optional<entry> replaced_;
};

void file_send::run(upload_batch& files)
{
    server_.check_name(file_.target());
    begin();
    try {
        if (!complete_) {
            send_content(files);
        }
        if (file_.needs_verifying()) {
            file_.verify(server_.ask_checksum(file_.path()));
        }
        server_.set_facts(file_.path(), file_.facts_to_set(replaced_));
        if (file_.is_temporary()) {
            replace_file(server_, file_.path(), file_.target(), file_.may_replace());
        }
        file_.finish();
    } catch (...) {
        discard(std::current_exception());
        throw;
    }
}

void file_send::begin()
{
    const auto there = find_what_is_there();
    if (!file_.may_replace() && server_.find(file_.target())) {
        throw AlreadyExists(file_.target());
    }
    range_ = file_.begin(there);
    told_ = range_.begin;
    read_ = range_.begin;
    complete_ = there && range_.begin >= range_.end;
    replaced_ = file_.needs_replaced() ? server_.find_replaced(file_.target()) : std::nullopt;
}

void file_send::send_content(upload_batch& files)
{
    for (bool again = false;; again = true) {
        try {
            if (again) {
                find_break();
            }
            return store_rest();
        } catch (const error&) {
            advanced_ = again ? advanced_ : read_ > range_.begin;
            if (is_torn_ || !files.retry(std::current_exception(), advanced_)) {
                throw;
            }
        }
    }
}

std::optional<file_facts> file_send::find_what_is_there() const
{
    if (!file_.resumes()) {
        return std::nullopt;
    }
    if (file_.is_temporary()) {
        if (const auto size = server_.size(file_.path())) {
            return file_facts{.size = size};
        }
        if (!file_.completes_target()) {
            return std::nullopt;
        }
    }
    const auto found = server_.find(file_.target());
    if (!found || (file_.is_temporary() && !file_.complete_target(facts_of(*found)))) {
        return std::nullopt;
    }
    file_facts there = facts_of(*found);
    there.size = server_.size(file_.path());
    return there;
}

/// After the connection broke: the rest begins where the server's part of the file ends.
void file_send::find_break()
{
    advanced_ = false;
    const std::uint64_t begun_at = range_.begin;
    const auto stored = read_ > begun_at ? server_.size(file_.path()) : std::optional(begun_at);
    const bool usable = stored && *stored >= begun_at && *stored <= read_;
    if (!file_.is_unchanged()) {
        range_ = file_.begin(std::nullopt);
        told_ = 0;
    } else if (usable && (file_.reads_anywhere() || *stored == read_)) {
        range_.begin = *stored;
    } else if (file_.reads_anywhere()) {
        range_.begin = 0;
    } else {
        is_torn_ = true;
        throw ConnectionLost(file_.target());
    }
    read_ = range_.begin;
    advanced_ = range_.begin > begun_at;
    send_first_piece();
}

/// A server whose disk is full closes the data connection, and libcurl does not read what it has to say. After
/// a short piece, which is sent before the server closes anything, it does.
void file_send::send_first_piece()
{
    constexpr std::uint64_t piece = std::uint64_t{16} * 1024;
    const std::uint64_t end = range_.begin + piece;
    if (!file_.reads_anywhere() || end >= range_.end) {
        return;
    }
    const request_result result = store({range_.begin, end});
    if (!result.is_done()) {
        throw_refused_store(result);
    }
    check_stored(result);
    range_.begin += result.moved;
}

void file_send::store_rest()
{
    request_result result = store(range_);
    const bool name_refused = !result.is_done() && result.last_reply().code == code::file_name_not_allowed;
    if (name_refused && file_.is_temporary() && (result.moved == 0 || file_.reads_anywhere())) {
        file_.rename_temporary(); // Something else has the name.
        range_.begin = 0;
        told_ = 0;
        result = store(range_);
    }
    if (!result.is_done()) {
        throw_refused_store(result);
    }
    check_stored(result);
}

request_result file_send::store(byte_range range)
{
    upload_source source{.read =
                             [this](std::uint64_t offset, std::span<char> buffer) {
                                 const std::size_t got = file_.read(offset, buffer);
                                 read_ = std::max(read_, offset + got);
                                 return got;
                             },
                         .on_sent =
                             [this](std::uint64_t position) {
                                 // A repeat sends again what was sent.
                                 const std::uint64_t known = std::exchange(told_, std::max(told_, position));
                                 file_.sent(told_ - known);
                             }};
    const auto size = file_.size();
    source.size = size ? std::optional(std::min(*size, range.end)) : std::nullopt;
    request wanted{.subject = file_.target(), .path = file_.path(), .last_commands = {"SIZE " + file_.path()}};
    wanted.source = &source;
    wanted.range = range;
    wanted.repeatable = range.begin == 0; // What was appended would be appended again.
    request_result result = server_.run(wanted);
    if (result.is_done()) {
        source.on_sent(range.begin + result.moved);
    }
    return result;
}

void file_send::throw_refused_store(const request_result& result) const
{
    response said = result.said();
    if (said.code == code::insufficient_storage || said.code == code::exceeded_storage) {
        throw DiskFull(file_.target(), said);
    }
    const bool name_refused = said.code == code::file_name_not_allowed || said.code == code::file_unavailable;
    if (file_.is_temporary() && name_refused && result.moved == 0) {
        said.message += "; if it refuses temporary names, --in-place writes to the name itself";
    }
    throw_refusal(server_, file_.target(), expected::new_file, said);
}

void file_send::check_stored(const request_result& result) const
{
    const auto stored = parse_size(result.last_reply());
    const std::uint64_t sent = range_.begin + result.moved;
    if (stored && *stored != sent) {
        throw SizeMismatch(file_.target(), fmt::format("{} of {} bytes", *stored, sent));
    }
}

void file_send::discard(const std::exception_ptr& why) const
{
    bool is_wrong = false;
    try {
        std::rethrow_exception(why);
    } catch (const SizeMismatch&) {
        is_wrong = true;
    } catch (const ChecksumMismatch&) {
        is_wrong = true;
    } catch (...) { // NOLINT(bugprone-empty-catch): what is there is a beginning
    }
    if (file_.is_temporary() && (is_wrong || !file_.keeps_temporary())) {
        server_.clean_up([&] { server_.send_unchecked(file_.path(), {"DELE " + file_.path()}); });
    }
}

} // namespace

void send_file(ftp& server, const upload_batch::part& what, upload_batch& files)
{
    file_send(server, *what.file).run(files);
}

} // namespace qrftp::ftp

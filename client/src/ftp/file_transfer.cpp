#include "file_transfer.hpp"

#include "../transfer/replace.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp::ftp {

namespace {

/// One download.
class file_fetch {
public:
    file_fetch(ftp& server, download& file) : server_(server), file_(file) {}

    void run();

private:
    /// The target wants another part of the file than the one that is under way.
    struct other_range {};
    enum class size_is { asked_for, as_listed, ignored };

    /// Whether the target wants what is under way.
    bool begin(std::optional<std::uint64_t> size);
    request_result receive(size_is source);
    request_result receive_part(size_is source);
    bool restart();
    void finish(std::optional<std::uint64_t> size);

    ftp& server_;
    download& file_;
    byte_range range_;
    bool begun_ = false;
    std::uint64_t received_ = 0;
};

void file_fetch::run()
{
    if (file_.needs_size()) {
        const request_result answer =
            server_.send_unchecked(file_.path(), {"TYPE I", "SIZE " + file_.path()}, true);
        const reply& last = answer.last_reply();
        if (!last.is_completion() && !last.is_unknown_command()) {
            throw_refusal(server_, file_.path(), expected::file, last.said());
        }
        begin(parse_size(last));
    }
    const auto listed = file_.needs_size() ? std::nullopt : file_.listed_size();
    request_result result = receive(listed ? size_is::as_listed : size_is::asked_for);
    if (listed && received_ != *listed && restart()) {
        result = receive(size_is::asked_for); // It is not as long as it was, or not all of it came.
    }
    const std::uint64_t got = range_.begin + received_;
    if (result.size && got > *result.size && range_.end == byte_range::to_the_end && restart()) {
        result = receive(size_is::ignored); // A size that is smaller than what came is none.
    }
    if (!begun_) {
        begin(result.size); // an empty file
    }
    finish(result.size);
}

bool file_fetch::begin(std::optional<std::uint64_t> size)
{
    const byte_range before = std::exchange(range_, file_.begin({.size = size}));
    begun_ = true;
    return range_.begin == before.begin && range_.end == before.end;
}

bool file_fetch::restart()
{
    if (begun_ && !file_.restart()) {
        return false;
    }
    received_ = 0;
    return true;
}

request_result file_fetch::receive(size_is source)
{
    try {
        return receive_part(source);
    } catch (const other_range&) {
        return receive_part(source);
    } catch (const NoEncryption&) {
        if (begun_ || source != size_is::asked_for) {
            throw;
        }
        // A server that refuses to send the file never begins with TLS on the data connection. After commands
        // of ours libcurl gives up without reading the refusal; without them, it tells.
        return receive_part(size_is::ignored);
    }
}

request_result file_fetch::receive_part(size_is source)
{
    if (range_.begin >= range_.end) {
        return {};
    }
    request wanted{.subject = file_.path(), .path = file_.path()};
    wanted.range = range_;
    wanted.want_size = source == size_is::asked_for;
    if (source == size_is::as_listed) {
        wanted.expected_size = file_.listed_size();
    }
    wanted.on_begin = [&](std::optional<std::uint64_t> size) {
        if (!begun_ && !begin(size)) {
            throw other_range();
        }
    };
    wanted.on_data = [&](std::string_view bytes) {
        file_.write(range_.begin + received_, bytes);
        received_ += bytes.size();
    };
    wanted.on_tick = [&] { file_.tick(); };
    wanted.restart = [&] { return restart(); };
    request_result result = server_.run(wanted);
    if (!result.is_done()) {
        throw_refusal(server_, file_.path(), expected::file, result.said());
    }
    return result;
}

void file_fetch::finish(std::optional<std::uint64_t> size)
{
    file_facts told{.size = size == range_.begin + received_ ? size : std::nullopt};
    if (file_.needs_time()) {
        if (const auto time = server_.modification_time(file_.path())) {
            told.modified = time->time;
        }
    }
    if (file_.needs_mode()) {
        const auto there = server_.find(file_.path());
        told.mode = there ? there->mode : std::nullopt;
    }
    file_.finish(told);
}

/// One upload.
class file_send {
public:
    file_send(ftp& server, upload& file) : server_(server), file_(file) {}

    void run();

private:
    [[nodiscard]] std::optional<file_facts> find_what_is_there() const;
    void send_content();
    [[nodiscard]] request_result store() const;
    void check_stored(const request_result& result) const;

    ftp& server_;
    upload& file_;
    byte_range range_;
};

void file_send::run()
{
    server_.check_name(file_.target());
    if (!file_.may_replace() && server_.find(file_.target())) {
        throw AlreadyExists(file_.target());
    }
    const auto there = find_what_is_there();
    range_ = file_.begin(there);
    const bool complete = there && range_.begin >= range_.end;
    const auto replaced = file_.needs_replaced() ? server_.find_replaced(file_.target()) : std::nullopt;
    try {
        if (!complete) {
            send_content();
        }
        if (file_.finish_part()) {
            server_.set_facts(file_.path(), file_.facts_to_set(replaced));
            if (file_.is_temporary()) {
                replace_file(server_, file_.path(), file_.target(), file_.may_replace());
            }
            file_.finish();
        }
    } catch (...) {
        if (file_.is_temporary()) {
            server_.clean_up([&] { server_.send_unchecked(file_.path(), {"DELE " + file_.path()}); });
        }
        throw;
    }
}

std::optional<file_facts> file_send::find_what_is_there() const
{
    if (!file_.resumes() || !server_.find(file_.path())) {
        return std::nullopt;
    }
    return file_facts{.size = server_.size(file_.path())};
}

void file_send::send_content()
{
    request_result result = store();
    const bool name_refused = !result.is_done() && result.last_reply().code == code::file_name_not_allowed;
    if (name_refused && file_.is_temporary() && (result.moved == 0 || file_.reads_anywhere())) {
        file_.rename_temporary(); // Something else has the name.
        result = store();
    }
    if (!result.is_done()) {
        const response said = result.said();
        if (said.code == code::insufficient_storage || said.code == code::exceeded_storage) {
            throw DiskFull(file_.target(), said);
        }
        throw_refusal(server_, file_.target(), expected::new_file, said);
    }
    check_stored(result);
}

request_result file_send::store() const
{
    std::uint64_t told = range_.begin;
    upload_source source{
        .read = [this](std::uint64_t offset, std::span<char> buffer) { return file_.read(offset, buffer); },
        .on_sent =
            [&](std::uint64_t position) {
                // A repeat sends again what was sent.
                const std::uint64_t known = std::exchange(told, std::max(told, position));
                file_.sent(told - known);
            }};
    source.size = file_.size();
    source.reads_again = file_.reads_anywhere();
    request wanted{.subject = file_.target(), .path = file_.path(), .last_commands = {"SIZE " + file_.path()}};
    wanted.source = &source;
    wanted.range = range_;
    wanted.repeatable = range_.begin == 0; // What was appended would be appended again.
    request_result result = server_.run(wanted);
    if (result.is_done()) {
        source.on_sent(range_.begin + result.moved);
    }
    return result;
}

void file_send::check_stored(const request_result& result) const
{
    const auto stored = parse_size(result.last_reply());
    const std::uint64_t sent = range_.begin + result.moved;
    if (stored && *stored != sent) {
        throw SizeMismatch(file_.target(), fmt::format("{} of {} bytes", *stored, sent));
    }
}

} // namespace

void fetch_file(ftp& server, download& file)
{
    file_fetch(server, file).run();
}

void send_file(ftp& server, upload& file)
{
    file_send(server, file).run();
}

} // namespace qrftp::ftp

#include "file_fetch.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace qrftp::ftp {

namespace {

/// One download, or a part of one.
class file_fetch {
public:
    file_fetch(ftp& server, const download_batch::part& what)
        : server_(server), file_(*what.file), part_(what.range), range_(what.range)
    {
    }

    void run(download_batch& files);

private:
    /// The target wants another part of the file than the one that is under way.
    struct other_range {};
    enum class size_is { asked_for, as_listed, ignored };

    [[nodiscard]] file_facts ask_source(bool may_be_refused);
    void fetch_rest();
    /// Whether the target wants what is under way.
    bool begin(const file_facts& source);
    void go_on();
    request_result receive(size_is source);
    request_result receive_part(size_is source);
    [[nodiscard]] request make_request(size_is source);
    bool restart();
    void check_length(std::optional<std::uint64_t> size) const;
    void finish(std::optional<std::uint64_t> size);

    ftp& server_;
    download& file_;
    byte_range part_;
    byte_range range_;
    file_facts source_; ///< when it was begun
    bool begun_ = false;
    bool broke_off_ = false;
    std::uint64_t received_ = 0;
};

void file_fetch::run(download_batch& files)
{
    for (std::uint64_t before = 0;; before = received_) {
        try {
            return fetch_rest();
        } catch (const error&) {
            if (!files.retry(std::current_exception(), received_ > before)) {
                throw;
            }
            broke_off_ = begun_;
        }
    }
}

file_facts file_fetch::ask_source(bool may_be_refused)
{
    const request_result answer =
        server_.send_unchecked(file_.path(), {"TYPE I", "MDTM " + file_.path(), "SIZE " + file_.path()}, true);
    const reply& size = answer.last_reply();
    if (!may_be_refused && !size.is_completion() && !size.is_unknown_command()) {
        throw_refusal(server_, file_.path(), expected::file, size.said());
    }
    return {.size = parse_size(size), .modified = parse_time(answer.last_reply(1))};
}

void file_fetch::fetch_rest()
{
    if (broke_off_) {
        go_on();
    } else if (file_.needs_size()) {
        begin(ask_source(false));
    }
    const auto listed = begun_ ? std::nullopt : file_.listed_size();
    request_result result = receive(listed ? size_is::as_listed : size_is::asked_for);
    if (listed && received_ != *listed && restart()) {
        result = receive(size_is::asked_for); // It is not as long as it was, or not all of it came.
    }
    const std::uint64_t got = range_.begin + received_;
    const auto size = result.source.size ? result.source.size : source_.size;
    if (size && got > *size && range_.end == byte_range::to_the_end && restart()) {
        result = receive(size_is::ignored); // A size that is smaller than what came is none.
    }
    if (!begun_) {
        begin(result.source); // an empty file
    }
    check_length(size);
    finish(size);
}

bool file_fetch::begin(const file_facts& source)
{
    const byte_range before = range_;
    source_ = source;
    source_.size = source.size ? source.size : file_.listed_size();
    source_.modified = source.modified ? source.modified : file_.listed_time();
    range_ = file_.begin(source);
    range_ = {std::max(range_.begin, part_.begin), std::min(range_.end, part_.end)};
    begun_ = true;
    return range_.begin == before.begin && range_.end == before.end;
}

/// After the connection broke.
void file_fetch::go_on()
{
    const file_facts now = ask_source(true);
    const bool same = now.size && now.size == source_.size && now.modified && now.modified == source_.modified;
    if (!same && received_ > 0 && !restart()) {
        throw SizeMismatch(file_.path(), now.size && now.modified ? "it was changed while it was fetched"
                                                                  : "the connection broke, and the server does "
                                                                    "not tell whether it was changed");
    }
    source_ = now;
}

bool file_fetch::restart()
{
    if (begun_ && !(part_.is_whole() && file_.restart())) {
        return false;
    }
    received_ = 0;
    source_ = {};
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
    constexpr std::uint64_t longest_file = std::numeric_limits<std::int64_t>::max(); // that servers know
    const std::uint64_t size = begun_ ? source_.size.value_or(longest_file) : longest_file;
    if (range_.begin + received_ >= std::min({range_.end, size, longest_file})) {
        return {};
    }
    request_result result = server_.run(make_request(source));
    if (!result.is_done() && received_ > 0 && result.last_reply().is_unknown_command() && restart()) {
        result = server_.run(make_request(source)); // It has no REST.
    }
    if (!result.is_done()) {
        throw_refusal(server_, file_.path(), expected::file, result.said());
    }
    return result;
}

request file_fetch::make_request(size_is source)
{
    request wanted{.subject = file_.path(), .path = file_.path()};
    wanted.range = {range_.begin + received_, range_.end};
    wanted.want_size = source == size_is::asked_for;
    wanted.want_time = wanted.want_size && !begun_ && file_.wants_time() && has_feature(server_.info(), "MDTM");
    if (source == size_is::as_listed) {
        wanted.expected_size = file_.listed_size();
    }
    wanted.on_begin = [this](const file_facts& told) {
        if (!begun_ && !begin(told)) {
            throw other_range();
        }
    };
    wanted.on_tick = [&] { file_.tick(); };
    wanted.on_data = [this](std::string_view bytes) {
        file_.write(range_.begin + received_, bytes);
        received_ += bytes.size();
    };
    return wanted;
}

/// Of a part that was cut at its end, libcurl does not tell whether all of it came.
void file_fetch::check_length(std::optional<std::uint64_t> size) const
{
    if (size && range_.end != byte_range::to_the_end) {
        const std::uint64_t end = std::min(range_.end, *size);
        if (range_.begin + received_ < end) {
            throw SizeMismatch(file_.path(), fmt::format("{} of {} bytes", range_.begin + received_, end));
        }
    }
}

void file_fetch::finish(std::optional<std::uint64_t> size)
{
    const bool right = !part_.is_whole() || size == range_.begin + received_;
    file_facts told{.size = right ? size : std::nullopt};
    if (file_.needs_time()) {
        const auto time = source_.modified ? std::nullopt : server_.modification_time(file_.path());
        told.modified = time ? std::optional(time->time) : source_.modified;
    }
    if (file_.needs_mode()) {
        const auto there = server_.find(file_.path());
        told.mode = there ? there->mode : std::nullopt;
    }
    if (file_.needs_checksum()) {
        told.content = server_.ask_checksum(file_.path());
    }
    file_.finish(told);
}

} // namespace

void fetch_file(ftp& server, const download_batch::part& what, download_batch& files)
{
    file_fetch(server, what).run(files);
}

} // namespace qrftp::ftp

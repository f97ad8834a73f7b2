#include "download_job.hpp"

#include "extensions.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp::sftp {

namespace {

/// What every server gives in answer to one READ.
constexpr std::uint32_t smallest_read = 32 * 1024;

std::exception_ptr size_mismatch(const std::string& path, std::uint64_t got, std::uint64_t size)
{
    return std::make_exception_ptr(SizeMismatch(path, fmt::format("{} of {} bytes", got, size)));
}

} // namespace

void download_job::send_first()
{
    if (!is_retry() && !file_.needs_time()) {
        size_ = file_.listed_size();
    }
    is_listed_ = size_.has_value();
    plan(part_.end == byte_range::to_the_end ? size_.value_or(0) : part_.end - part_.begin);
    send_open(step::open, file_.path(), open_flag::read);
}

void download_job::handle_reply(const request_tag& tag, const reply& answer)
{
    switch (tag.step) {
    case step::open:
        return take_handle(answer, file_.path()) ? on_opened() : void();
    case step::fstat:
        return on_fstat(answer);
    case step::checksum:
        return on_checksum(answer);
    default:
        return on_read(tag, answer);
    }
}

void download_job::on_opened()
{
    if (is_listed_) {
        return begin();
    }
    ask(packet_type::fstat, step::fstat, handle());
    if (file_.needs_size() || is_retry()) {
        return;
    }
    if (part_.end != byte_range::to_the_end) {
        next_ = part_.begin;
        get_ready();
    } else { // All of a small file comes with its attributes.
        const std::uint32_t length = std::min(state().read_size(), smallest_read);
        ask_for(step::read, part_.begin, length);
        ahead_ = part_.begin + length;
    }
}

void download_job::on_fstat(const reply& answer)
{
    if (answer.is_status()) {
        return fail_refused(file_.path(), answer);
    }
    source_ = answer.attrs();
    if (kind_of(*source_) == entry_kind::folder) {
        return fail(std::make_exception_ptr(IsFolder(file_.path())));
    }
    // Files of no size may be made as they are read.
    size_ = source_->size == 0 && !file_.needs_size() ? std::nullopt : source_->size;
    begin();
}

void download_job::begin()
{
    const bool begun = guarded([this] { has_begun_ ? begin_again() : begin_first_time(); });
    if (begun) {
        start_reading();
    }
}

void download_job::begin_first_time()
{
    range_ = file_.begin(facts());
    range_.begin = std::max(range_.begin, part_.begin);
    range_.end = std::min(range_.end, part_.end);
    position_ = range_.begin;
    has_begun_ = true;
}

/// After a lost connection, or a listing that does not hold any more.
void download_job::begin_again()
{
    if (is_unchanged()) {
        return;
    }
    const bool is_restarted = part_.is_whole() && file_.restart();
    if (!is_restarted && position_ > range_.begin) {
        throw SizeMismatch(file_.path(), "it was changed while it was fetched");
    }
    position_ = range_.begin;
}

bool download_job::is_unchanged() const
{
    return earlier_ && earlier_->size && earlier_->time && earlier_->size == source_->size && source_->time &&
           earlier_->time->modified == source_->time->modified;
}

void download_job::start_reading()
{
    is_reading_ = true;
    next_ = std::max(part_.begin == position_ ? ahead_ : 0, position_);
    ahead_ = 0;
    plan(limit() - std::min(next_, limit()));
    forget_early(position_);
    if (guarded([this] { write_early(); })) {
        advance_or_finish();
    }
}

std::uint64_t download_job::expected_end() const
{
    return std::min(range_.end, size_.value_or(unknown));
}

std::uint64_t download_job::limit() const
{
    if (!is_reading_ && part_.end != byte_range::to_the_end) {
        return part_.end;
    }
    const std::uint64_t come = position_ - range_.begin;
    const std::uint64_t last =
        size_ ? *size_ + (is_listed_ ? 1 : 0) : position_ + std::max<std::uint64_t>(come, state().read_size());
    return std::min({last, range_.end, end_});
}

bool download_job::send_more()
{
    const std::uint64_t last = limit();
    if (next_ >= last) {
        return false;
    }
    const auto length = static_cast<std::uint32_t>(std::min<std::uint64_t>(last - next_, state().read_size()));
    ask_for(step::read, next_, length);
    next_ += length;
    ahead_ = is_reading_ ? 0 : next_;
    plan(planned() - std::min<std::uint64_t>(planned(), length));
    return true;
}

void download_job::ask_for(step reason, std::uint64_t offset, std::uint32_t length)
{
    ask_part(packet_type::read, {this, reason, length, offset}, handle(), offset, length);
}

void download_job::on_read(const request_tag& tag, const reply& answer)
{
    note_answered(tag.length, server().window());
    if (answer.is_status(status_code::eof)) {
        end_ = std::min(end_, tag.offset);
    } else if (answer.is_status()) {
        return fail_refused(file_.path(), answer);
    } else {
        on_data(tag, answer.data());
    }
    if (!has_ended() && is_reading_) {
        advance_or_finish();
    }
}

void download_job::on_data(const request_tag& tag, std::string_view bytes)
{
    if (bytes.empty() || bytes.size() > tag.length) {
        throw_malformed(fmt::format("READ of {} bytes was answered with {}", tag.length, bytes.size()));
    }
    if (tag.step == step::read_again) { // The server gives less at once.
        state().most_read = std::max(smallest_read, state().read_size() / 2);
    }
    const std::uint64_t after = tag.offset + bytes.size();
    if (bytes.size() < tag.length && after != size_) {
        ask_for(step::read_again, after, tag.length - static_cast<std::uint32_t>(bytes.size()));
    }
    if (is_reading_ && after > expected_end()) {
        is_longer_ = is_listed_;
        bytes.remove_suffix(std::min<std::size_t>(bytes.size(), after - expected_end()));
    }
    if (!bytes.empty()) {
        guarded([&] { write(tag.offset, bytes); });
    }
}

/// In order: what comes early waits.
void download_job::write(std::uint64_t offset, std::string_view bytes)
{
    if (!is_reading_ || offset > position_) {
        if (early_.emplace(offset, bytes).second) {
            note_kept(bytes.size());
        }
    } else if (offset == position_) {
        file_.write(offset, bytes);
        position_ += bytes.size();
        write_early();
    }
}

void download_job::write_early()
{
    for (auto first = early_.begin(); first != early_.end() && first->first == position_;
         first = early_.begin()) {
        std::string bytes = std::move(first->second);
        early_.erase(first);
        note_given(bytes.size());
        bytes.resize(
            std::min<std::uint64_t>(bytes.size(), expected_end() - std::min(position_, expected_end())));
        if (!bytes.empty()) {
            file_.write(position_, bytes);
            position_ += bytes.size();
        }
    }
}

void download_job::forget_early(std::uint64_t end)
{
    const auto last = early_.lower_bound(end);
    for (auto each = early_.begin(); each != last; ++each) {
        note_given(each->second.size());
    }
    early_.erase(early_.begin(), last);
}

void download_job::advance_or_finish()
{
    if (next_ < limit()) {
        get_ready();
    } else if (unanswered() == 0) {
        on_all_read();
    }
}

void download_job::on_all_read()
{
    const bool is_short = size_ && position_ < expected_end();
    if (is_listed_ && (is_longer_ || is_short)) {
        is_listed_ = false;
        is_longer_ = false;
        is_reading_ = false;
        end_ = unknown;
        forget_early(unknown);
        return ask(packet_type::fstat, step::fstat, handle());
    }
    if (is_short || !early_.empty()) { // It has become shorter, or the server does not give all of it.
        return fail(size_mismatch(file_.path(), position_, size_.value_or(position_)));
    }
    finish();
}

file_facts download_job::facts() const
{
    file_facts told{.size = size_};
    if (source_) {
        const entry found = make_entry({}, *source_);
        told.mode = found.mode;
        told.modified = found.modified ? std::optional(found.modified->time) : std::nullopt;
    }
    return told;
}

void download_job::finish()
{
    close();
    if (file_.needs_checksum() && !content_) {
        return ask_checksum(step::checksum, file_.path());
    }
    guarded([this] {
        file_facts found = facts();
        found.size = size_.value_or(position_);
        found.content = content_;
        file_.finish(found);
    });
    end();
}

void download_job::on_checksum(const reply& answer)
{
    if (answer.is_status()) {
        return fail_refused(file_.path(), answer);
    }
    if (guarded([&] { content_ = read_check_file(answer, file_.path()); })) {
        finish();
    }
}

bool download_job::reset()
{
    if (source_) {
        earlier_ = std::exchange(source_, std::nullopt);
    }
    size_.reset();
    is_longer_ = false;
    is_reading_ = false;
    ahead_ = 0;
    end_ = unknown;
    early_.clear();
    return true;
}

void download_job::settle(const copy_hooks& hooks)
{
    explain_failure(hooks, file_.path(), false);
}

} // namespace qrftp::sftp

#include "download_job.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp::sftp {

namespace {

/// What every server gives in answer to one READ.
constexpr std::uint32_t smallest_read = 32 * 1024;

file_facts facts_of(const attributes& values)
{
    const entry told = make_entry({}, values);
    file_facts facts{.size = values.size, .modified = {}, .mode = told.mode};
    if (told.modified) {
        facts.modified = told.modified->time;
    }
    return facts;
}

} // namespace

void download_job::send_first()
{
    const bool needs_stat = is_retry() || file_.needs_time() || !file_.listed_size();
    has_facts_ = !needs_stat;
    if (needs_stat) {
        // Before OPEN: should the file be replaced in between, its new content comes with the old time and is
        // seen as changed the next time.
        ask(packet_type::stat, step::stat, file_.path());
    } else {
        expected_ = file_.listed_size();
        plan(*expected_);
    }
    send_open(step::open, file_.path(), open_flag::read);
}

void download_job::handle_reply(const request_tag& tag, const reply& answer)
{
    switch (tag.step) {
    case step::stat:
        return on_stat(answer);
    case step::open:
        if (take_handle(answer, file_.path())) {
            begin();
        }
        return;
    case step::check_size:
        return on_size(answer);
    default:
        return on_read(tag, answer);
    }
}

void download_job::on_stat(const reply& answer)
{
    has_facts_ = true;
    if (!answer.is_status()) { // else OPEN tells what is the matter
        source_ = answer.attrs();
        expected_ = source_->size;
        if (kind_of(*source_) == entry_kind::folder) {
            return fail(std::make_exception_ptr(IsFolder(file_.path())));
        }
    }
    begin();
}

/// Goes on when both the facts and the handle are there.
void download_job::begin()
{
    if (!has_facts_ || !is_open()) {
        return;
    }
    if (!guarded([this] { has_begun_ ? void() : begin_first_time(); })) {
        return;
    }
    if (is_retry() && !is_unchanged()) {
        if (position_ > range_.begin && !file_.restart()) {
            return fail(std::make_exception_ptr(ConnectionLost(file_.path())));
        }
        position_ = range_.begin;
    }
    next_ = position_;
    plan(std::min(limit(), range_.end) - std::min(next_, limit()));
    advance_or_finish();
}

void download_job::begin_first_time()
{
    file_facts facts = source_ ? facts_of(*source_) : file_facts{};
    facts.size = expected_;
    range_ = file_.begin(facts);
    range_.begin = std::max(range_.begin, part_.begin);
    range_.end = std::min(range_.end, part_.end);
    position_ = range_.begin;
    has_begun_ = true;
}

bool download_job::is_unchanged() const
{
    return earlier_ && source_ && earlier_->size && earlier_->time && earlier_->size == source_->size &&
           earlier_->time->modified == source_->time.value_or(attributes::times{}).modified;
}

/// Up to where it is asked for: one byte beyond the size that was told. Without that as much as has come.
std::uint64_t download_job::limit() const
{
    const std::uint64_t come = position_ - range_.begin;
    const std::uint64_t told =
        expected_ ? *expected_ : position_ + std::max<std::uint64_t>(come, state().read_size);
    return std::min({told < unknown ? told + 1 : told, range_.end, end_});
}

bool download_job::send_more()
{
    const std::uint64_t last = limit();
    if (next_ >= last) {
        return false;
    }
    const auto length = static_cast<std::uint32_t>(std::min<std::uint64_t>(last - next_, state().read_size));
    ask_for(step::read, next_, length);
    next_ += length;
    plan(planned() - std::min<std::uint64_t>(planned(), length));
    return true;
}

void download_job::ask_for(step reason, std::uint64_t offset, std::uint32_t length)
{
    ask_part(packet_type::read, {this, reason, length, offset}, handle(), offset, length);
}

void download_job::on_read(const request_tag& tag, const reply& answer)
{
    note_answered(tag.length);
    if (answer.is_status(status_code::eof)) {
        end_ = std::min(end_, tag.offset);
    } else if (answer.is_status()) {
        return fail_refused(file_.path(), answer);
    } else {
        on_data(tag, answer.data());
    }
    if (!has_ended()) {
        advance_or_finish();
    }
}

void download_job::on_data(const request_tag& tag, std::string_view bytes)
{
    if (bytes.empty() || bytes.size() > tag.length) {
        throw_malformed(fmt::format("READ of {} bytes was answered with {}", tag.length, bytes.size()));
    }
    if (tag.step == step::read_again) { // The server gives less at once.
        state().read_size = std::max(smallest_read, state().read_size / 2);
    }
    const std::uint64_t after = tag.offset + bytes.size();
    if (expected_ && after > *expected_ && range_.end > *expected_) {
        expected_.reset(); // It is longer than was told.
    }
    if (bytes.size() < tag.length) {
        if (after == expected_) {
            end_ = std::min(end_, after);
        } else {
            ask_for(step::read_again, after, tag.length - static_cast<std::uint32_t>(bytes.size()));
        }
    }
    guarded([&] { write(tag.offset, bytes); });
}

void download_job::write(std::uint64_t offset, std::string_view bytes)
{
    if (offset == position_) {
        file_.write(offset, bytes);
        position_ += bytes.size();
        return write_early();
    }
    early_part part{bytes.size(), {}};
    if (file_.takes_any_order()) {
        file_.write(offset, bytes);
    } else {
        part.bytes = bytes;
    }
    early_.insert_or_assign(offset, std::move(part));
}

void download_job::write_early()
{
    for (auto first = early_.begin(); first != early_.end() && first->first == position_;
         first = early_.begin()) {
        const early_part part = std::move(first->second);
        early_.erase(first);
        if (!part.bytes.empty()) {
            file_.write(position_, part.bytes);
        }
        position_ += part.length;
    }
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
    if (!early_.empty()) {
        return fail(std::make_exception_ptr(SizeMismatch(
            file_.path(),
            fmt::format("the server told of its end at byte {}, and sent bytes behind it", end_))));
    }
    if (expected_ && position_ < std::min(*expected_, range_.end)) {
        return ask(packet_type::fstat, step::check_size, handle());
    }
    finish();
}

/// The end came early: the file has become shorter, or the server does not give all of it.
void download_job::on_size(const reply& answer)
{
    const auto size = answer.is_status() ? std::nullopt : answer.attrs().size;
    if (size != position_) {
        return fail(std::make_exception_ptr(
            SizeMismatch(file_.path(), fmt::format("the server has {} bytes of it and gave {}",
                                                   size.value_or(*expected_), position_))));
    }
    expected_ = position_;
    finish();
}

void download_job::finish()
{
    close();
    guarded([this] {
        file_facts facts = source_ ? facts_of(*source_) : file_facts{};
        facts.size = expected_ ? *expected_ : position_;
        file_.finish(facts);
    });
    end();
}

bool download_job::reset()
{
    earlier_ = std::exchange(source_, std::nullopt);
    expected_.reset();
    end_ = unknown;
    early_.clear();
    return true;
}

void download_job::settle(const copy_hooks& hooks)
{
    explain_failure(hooks, file_.path(), false);
}

} // namespace qrftp::sftp

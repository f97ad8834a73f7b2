#include "upload_job.hpp"

#include "extensions.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qrftp::sftp {

void upload_job::send_first()
{
    if (is_renaming_) {
        return ask_whether_renamed();
    }
    const bool is_own = is_retry() && !file_.is_temporary(); // made by the first try, perhaps
    knows_target_ =
        knows_target_ || is_own || !part_.is_last() || (file_.may_replace() && !file_.needs_replaced());
    if (!knows_target_) {
        ask(packet_type::lstat, step::look_at_target, file_.target());
    }
    if (has_begun_) {
        return take_up();
    }
    if (file_.resumes()) {
        return ask(packet_type::stat, step::look, file_.path());
    }
    begin({});
}

void upload_job::handle_reply(const request_tag& tag, const reply& answer)
{
    switch (tag.step) {
    case step::look:
        return on_look(answer);
    case step::look_in_place:
        return on_look_in_place(answer);
    case step::look_at_target:
        return on_look_at_target(answer);
    case step::open:
        return on_open(answer);
    case step::look_for_more:
        return on_look_for_more(answer);
    case step::cut:
        return on_cut(answer);
    case step::write:
        return on_written(tag, answer);
    case step::close:
        return on_closed(answer);
    case step::check_size:
        return on_size(answer);
    case step::checksum:
        return on_checksum(answer);
    case step::rename:
        return on_renamed(answer);
    case step::find_temporary:
        temporary_is_there_ = !answer.is_status();
        return;
    case step::find_target:
        return on_found_target(answer);
    default: // Facts that a server does not set are no failure.
        return is_closed_ ? on_stored() : void();
    }
}

/// After the connection was lost.
void upload_job::take_up()
{
    guarded([&] { file_.is_unchanged() ? open_target() : begin({}); });
}

void upload_job::on_look(const reply& answer)
{
    if (answer.is_status(status_code::no_such_file)) {
        const bool may_complete = file_.is_temporary() && file_.completes_target();
        return may_complete ? ask(packet_type::stat, step::look_in_place, file_.target()) : begin({});
    }
    if (answer.is_status()) {
        return fail_refused(file_.target(), answer);
    }
    may_exist_ = true;
    begin(facts_of(make_entry({}, answer.attrs())));
}

/// There is no part under the temporary name: a target that is there is completed.
void upload_job::on_look_in_place(const reply& answer)
{
    if (answer.is_status()) {
        return begin({});
    }
    if (!file_.complete_target(facts_of(make_entry({}, answer.attrs())))) {
        return begin({});
    }
    on_look(answer);
}

void upload_job::on_look_at_target(const reply& answer)
{
    knows_target_ = true;
    if (!answer.is_status()) {
        replaced_ = make_entry({}, answer.attrs());
        if (!file_.may_replace()) {
            return fail(std::make_exception_ptr(AlreadyExists(file_.target())));
        }
    }
    if (is_sent_ && is_open()) {
        finish_writing();
    }
}

void upload_job::begin(const std::optional<file_facts>& there)
{
    const bool begun = guarded([&] {
        range_ = file_.begin(there);
        range_.begin = std::max(range_.begin, part_.begin);
        range_.end = std::min(range_.end, part_.end);
        next_ = range_.begin;
        confirmed_ = range_.begin;
        has_begun_ = true;
    });
    if (begun) {
        open_target();
    }
}

void upload_job::open_target()
{
    plan(last() == byte_range::to_the_end ? 0 : last() - std::min(next_, last()));
    has_temporary_ = file_.is_temporary();
    attributes initial;
    const bool is_known = guarded([&] {
        if (has_temporary_) { // Nobody reads on the way what nobody may read in the end.
            initial.permissions = to_attributes(file_.facts_to_set({})).permissions;
        }
    });
    if (initial.permissions) {
        *initial.permissions |= 0200; // It may be opened again, in another part or over another connection.
    }
    if (is_known) {
        send_open(step::open, file_.path(), open_flags(), initial);
    }
}

/// Nothing of what is resumed may be cut off; what parts are written to is cut in the end. What is new must not
/// be there.
std::uint32_t upload_job::open_flags() const
{
    std::uint32_t flags = open_flag::write | open_flag::create;
    if (part_.is_whole() && next_ == 0) {
        flags |= open_flag::truncate;
        if (!is_retry() && !may_exist_ && (file_.is_temporary() || !file_.may_replace())) {
            flags |= open_flag::exclusive;
        }
    }
    return flags;
}

void upload_job::on_open(const reply& answer)
{
    if (!take_handle(answer, file_.target())) {
        if (is_postponed() && file_.is_temporary() && part_.is_whole()) {
            guarded([this] { file_.rename_temporary(); });
        }
        return;
    }
    if (next_ < last()) {
        get_ready();
    } else if (part_.is_last() && !part_.is_whole() && !file_.is_temporary()) {
        ask(packet_type::fstat, step::look_for_more, handle());
    } else {
        finish_writing();
    }
}

/// What was there before the parts may have been longer than they are: it is cut, unless it is no file.
void upload_job::on_look_for_more(const reply& answer)
{
    const attributes there = answer.is_status() ? attributes() : answer.attrs();
    const auto kind = kind_of(there);
    const std::uint64_t sent = last();
    const std::uint64_t stored = there.size ? *there.size : byte_range::to_the_end;
    if ((!kind || *kind == entry_kind::file) && stored > sent) {
        is_longer_ = kind && there.size;
        return ask(packet_type::fsetstat, step::cut, handle(), attributes{.size = sent});
    }
    finish_writing();
}

/// What may have had nothing to be cut off may be no file.
void upload_job::on_cut(const reply& answer)
{
    answer.is_failure() && is_longer_ ? fail_refused(file_.target(), answer) : finish_writing();
}

/// Where the source ends, as far as that is known.
std::uint64_t upload_job::last() const
{
    return std::min(range_.end, file_.size().value_or(byte_range::to_the_end));
}

bool upload_job::send_more()
{
    std::size_t sent = 0;
    const auto length =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(last() - next_, server().limits().write));
    const bool could_read = guarded([&] {
        sent = server().send_write({this, step::write, 0, next_}, handle(), length,
                                   [this](std::span<char> buffer) { return file_.read(next_, buffer); });
    });
    if (!could_read) {
        return false;
    }
    if (sent > 0) {
        note_sent(static_cast<std::uint32_t>(sent));
        next_ += sent;
        plan(planned() - std::min<std::uint64_t>(planned(), sent));
    }
    if (sent == 0 || next_ >= last()) {
        finish_writing();
        return false;
    }
    return true;
}

void upload_job::finish_writing()
{
    is_sent_ = true;
    if (!knows_target_) {
        return;
    }
    if (part_.is_last()) {
        send_facts();
    }
    if (has_ended()) {
        return;
    }
    ask_close(step::close);
    if (part_.is_last()) {
        ask(packet_type::stat, step::check_size, file_.path());
    }
}

void upload_job::send_facts()
{
    attributes values;
    if (!guarded([&] { values = to_attributes(file_.facts_to_set(replaced_)); }) || values == attributes{}) {
        return;
    }
    ask(packet_type::fsetstat, step::set_facts, handle(), values);
}

void upload_job::on_written(const request_tag& tag, const reply& answer)
{
    note_answered(tag.length, first_window);
    if (answer.is_failure()) {
        return fail_refused(file_.target(), answer);
    }
    if (tag.offset == confirmed_) {
        confirmed_ += tag.length;
    }
    if (guarded([&] { file_.sent(tag.length); }) && is_closed_) {
        on_stored();
    }
}

void upload_job::on_closed(const reply& answer)
{
    if (answer.is_failure()) {
        return fail_refused(file_.target(), answer);
    }
    is_closed_ = true;
    on_stored();
}

/// Goes on when everything has been confirmed.
void upload_job::on_stored()
{
    if (unanswered() > 0 || has_ended()) {
        return;
    }
    if (!part_.is_last()) {
        has_temporary_ = false; // It belongs to the other parts.
        return end();
    }
    if (file_.needs_verifying() && !std::exchange(is_verified_, true)) {
        return ask_checksum(step::checksum, file_.path());
    }
    if (file_.is_temporary()) {
        send_rename();
    } else {
        finish();
    }
}

void upload_job::on_size(const reply& answer)
{
    const std::uint64_t sent = file_.size().value_or(next_);
    const bool is_file = !answer.is_status() && kind_of(answer.attrs()) == entry_kind::file;
    if (is_file && answer.attrs().size && *answer.attrs().size != sent) {
        const std::string reason = fmt::format("{} of {} bytes", *answer.attrs().size, sent);
        return fail(std::make_exception_ptr(SizeMismatch(file_.target(), reason)));
    }
    on_stored();
}

void upload_job::on_checksum(const reply& answer)
{
    if (guarded([&] {
            answer.check(file_.target());
            file_.verify(read_check_file(answer, file_.target()));
        })) {
        on_stored();
    }
}

void upload_job::send_rename()
{
    is_renaming_ = true;
    const bool replaces = file_.may_replace() && server().has_extension(posix_rename.extension, "1");
    ask(replaces ? posix_rename : packet_type::rename, step::rename, file_.path(), file_.target());
}

void upload_job::on_renamed(const reply& answer)
{
    if (!answer.is_failure()) {
        return finish();
    }
    needs_replace_ = file_.may_replace() && !server().has_extension(posix_rename.extension, "1");
    if (needs_replace_) {
        return end();
    }
    fail_refused(file_.target(), answer);
}

/// The connection broke when RENAME had been sent: what there is tells whether it was carried out.
void upload_job::ask_whether_renamed()
{
    ask(packet_type::lstat, step::find_temporary, file_.path());
    ask(packet_type::lstat, step::find_target, file_.target());
}

void upload_job::on_found_target(const reply& answer)
{
    if (temporary_is_there_) {
        return send_rename();
    }
    if (!answer.is_status()) {
        return finish();
    }
    has_temporary_ = false;
    fail(std::make_exception_ptr(ConnectionLost(file_.target())));
}

void upload_job::finish()
{
    has_temporary_ = false;
    guarded([this] { file_.finish(); });
    end();
}

void upload_job::remove_temporary()
{
    if (std::exchange(has_temporary_, false) && (failed_by_content() || !file_.keeps_temporary())) {
        server().send(packet_type::remove, {}, file_.path());
    }
}

bool upload_job::reset()
{
    is_sent_ = false;
    is_closed_ = false;
    is_verified_ = false;
    temporary_is_there_ = false;
    const bool can_go_on = next_ == confirmed_ || file_.reads_anywhere();
    next_ = confirmed_;
    return can_go_on;
}

void upload_job::settle(const copy_hooks& hooks)
{
    if (std::exchange(needs_replace_, false) && !failure()) {
        has_temporary_ = false;
        try {
            hooks.replace(file_.path(), file_.target());
            file_.finish();
        } catch (...) {
            set_failure(std::current_exception());
        }
        return;
    }
    explain_failure(hooks, file_.target(), true);
}

} // namespace qrftp::sftp

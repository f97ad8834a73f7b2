#include "copy_job.hpp"

#include "extensions.hpp"

#include <utility>

namespace qrftp::sftp {

namespace {

/// How often an OPEN is refused before the file is opened alone.
constexpr unsigned max_refusals = 2;

} // namespace

attributes to_attributes(const file_facts& facts)
{
    attributes values;
    if (facts.mode) {
        values.permissions = static_cast<std::uint32_t>(*facts.mode) & 07777;
    }
    if (facts.modified) {
        const auto seconds = facts.modified->time_since_epoch().count();
        if (std::in_range<std::uint32_t>(seconds)) {
            const auto sent = static_cast<std::uint32_t>(seconds);
            values.time = attributes::times{sent, sent};
        }
    }
    return values;
}

copy_state::copy_state(pipeline& connection, std::uint64_t first_window)
    : server(connection), handles(connection.round_trip(), connection.limits().handles), bytes(first_window)
{
}

void copy_job::start(copy_state& state)
{
    state_ = &state;
    is_postponed_ = false;
    has_ended_ = false;
    send_first();
}

bool copy_job::wants_to_be_alone() const noexcept
{
    return refusals_ >= max_refusals;
}

void copy_job::advance()
{
    if (!send_more()) {
        leave_ready();
    }
}

void copy_job::on_reply(const request_tag& tag, const reply& answer)
{
    --unanswered_;
    handle_reply(tag, answer);
}

void copy_job::send_open(std::uint32_t step, const std::string& path, std::uint32_t flags,
                         const attributes& initial)
{
    ask(packet_type::open, step, path, flags, initial);
    state_->handles.on_open();
    is_counted_ = true;
}

/// Of the whole file, as one block.
void copy_job::ask_checksum(std::uint32_t step, const std::string& path)
{
    ask(check_file, step, path, check_file_algorithms, std::uint64_t{0}, std::uint64_t{0}, std::uint32_t{0});
}

bool copy_job::take_handle(const reply& answer, const std::string& subject)
{
    if (answer.type() == packet_type::handle) {
        handle_ = answer.handle();
        state_->handles.on_opened();
        is_open_ = true;
        return true;
    }
    state_->handles.on_refused();
    is_counted_ = false;
    if (answer.is_status(status_code::failure) && refusals_ < max_refusals && state_->handles.has_open()) {
        ++refusals_;
        is_postponed_ = true;
        end();
    } else {
        fail_refused(subject, answer);
    }
    return false;
}

void copy_job::close()
{
    if (is_open_) {
        server().send(packet_type::close, {}, handle_);
        note_closed();
    }
}

void copy_job::ask_close(std::uint32_t step)
{
    ask(packet_type::close, step, handle_);
    note_closed();
}

void copy_job::note_closed() noexcept
{
    is_open_ = false;
    is_counted_ = false;
    state_->handles.on_closed(true);
}

void copy_job::note_sent(std::uint32_t bytes) noexcept
{
    state_->bytes.on_sent(bytes);
    bytes_in_flight_ += bytes;
    ++unanswered_;
}

void copy_job::note_answered(std::uint32_t bytes, std::uint64_t largest) noexcept
{
    state_->bytes.on_answered(bytes, largest);
    bytes_in_flight_ -= bytes;
}

void copy_job::note_kept(std::uint64_t bytes) noexcept
{
    state_->bytes.on_sent(bytes);
    bytes_in_flight_ += bytes;
}

void copy_job::note_given(std::uint64_t bytes) noexcept
{
    state_->bytes.forget(bytes);
    bytes_in_flight_ -= bytes;
}

void copy_job::plan(std::uint64_t bytes) noexcept
{
    state_->planned += bytes - std::exchange(planned_, bytes);
}

void copy_job::get_ready()
{
    if (!has_ended_ && !std::exchange(is_ready_, true)) {
        state_->ready.push_back(this);
    }
}

void copy_job::end()
{
    if (!std::exchange(has_ended_, true)) {
        leave();
        state_->ended.push_back(this);
    }
}

/// Takes itself out of everything that the files share.
void copy_job::leave() noexcept
{
    leave_ready();
    if (std::exchange(unanswered_, 0) > 0) {
        server().abandon(*this);
    }
    if (std::exchange(is_counted_, false)) {
        state_->handles.on_closed(std::exchange(is_open_, false));
    }
    plan(0);
    state_->bytes.forget(std::exchange(bytes_in_flight_, 0));
}

void copy_job::leave_ready() noexcept
{
    if (std::exchange(is_ready_, false)) {
        std::erase(state_->ready, this);
    }
}

void copy_job::fail(std::exception_ptr why) noexcept
{
    if (has_ended_) {
        return;
    }
    failure_ = std::move(why);
    try {
        if (state_->server.is_open()) {
            close();
            remove_temporary();
        }
    } catch (
        const std::exception&) { // NOLINT(bugprone-empty-catch): the failure before it is the one to report
    }
    end();
}

bool copy_job::failed_by_content() const noexcept
{
    try {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    } catch (const error& why) {
        return why.cause() == error_cause::size_mismatch || why.cause() == error_cause::checksum_mismatch;
    } catch (...) {
        return false;
    }
    return false;
}

void copy_job::fail_refused(const std::string& subject, const reply& answer) noexcept
{
    guarded([&] { answer.check(subject); });
}

void copy_job::explain_failure(const copy_hooks& hooks, const std::string& path, bool is_upload)
{
    if (failure_ && hooks.explain) {
        failure_ = hooks.explain(path, is_upload, failure_);
    }
}

bool copy_job::interrupt()
{
    leave();
    ++interruptions_;
    return reset();
}

} // namespace qrftp::sftp

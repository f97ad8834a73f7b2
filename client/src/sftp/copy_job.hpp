#pragma once

#include "../protocol.hpp"
#include "copy_window.hpp"
#include "pipeline.hpp"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qrftp::sftp {

class copy_job;

/// What the files of a batch share while they are copied over one connection.
struct copy_state {
    copy_state(pipeline& connection, std::uint64_t first_window);

    /// Of one READ. The server's limit may come with the first answers only.
    [[nodiscard]] std::uint32_t read_size() const noexcept { return std::min(server.limits().read, most_read); }

    pipeline& server;
    handle_window handles;
    byte_window bytes;
    std::uint32_t most_read = max_data; ///< that this server gives at once
    std::uint64_t planned = 0;          ///< bytes that the open files have still to ask for
    std::deque<copy_job*> ready{}; ///< those that have something to send, in the order in which they get on
    std::vector<copy_job*> ended{};
};

/// What a copy leaves to whoever knows the server's files.
struct copy_hooks {
    /// The error that says why the server refused something for a file to be sent, or fetched, at `path`.
    std::function<std::exception_ptr(const std::string& path, bool is_upload, std::exception_ptr why)>
        explain{};
    /// Renames over a file that is there, on a server whose RENAME does not. Throws, and has then removed
    /// `from`.
    std::function<void(const std::string& from, const std::string& to)> replace{};
    /// Called after each file.
    std::function<void()> on_file_ended{};
};

/// Mode and time, as far as `facts` tell.
[[nodiscard]] attributes to_attributes(const file_facts& facts);

/// One file of a batch on its way. It ends, successfully or with an error, by being put into
/// `copy_state::ended`.
class copy_job : public reply_handler {
public:
    copy_job() = default;
    copy_job(const copy_job&) = delete;
    copy_job& operator=(const copy_job&) = delete;
    virtual ~copy_job() = default;

    /// Sends the first requests: for the first time, or once more after `interrupt`.
    void start(copy_state& state);
    /// Sends one more READ or WRITE. When there is none at the moment it is no longer ready.
    void advance();
    void on_reply(const request_tag& tag, const reply& answer) final;
    /// Called about every second, whether or not answers come.
    virtual void tick() = 0;
    /// After it has ended: does what takes requests that are waited for.
    virtual void settle(const copy_hooks& hooks) = 0;
    /// Ends it with an error; the server is told to close the file.
    void fail(std::exception_ptr why) noexcept;
    /// Removes what was stored under a temporary name; sent after everything else of this file.
    virtual void remove_temporary() = 0;
    /// What another job would have to copy of this part of a file; nothing where none can take it up.
    [[nodiscard]] virtual std::optional<byte_range> left_of(const byte_range& /*part*/) const { return {}; }
    /// The connection is gone. Whether it may be started again.
    [[nodiscard]] bool interrupt();

    [[nodiscard]] const std::exception_ptr& failure() const noexcept { return failure_; }
    /// The server opened no further file: to be tried again.
    [[nodiscard]] bool is_postponed() const noexcept { return is_postponed_; }
    /// It was refused too often to be opened beside others.
    [[nodiscard]] bool wants_to_be_alone() const noexcept;
    std::size_t position = 0; ///< in the list of those under way

protected:
    virtual void send_first() = 0;
    /// Sends one more READ or WRITE; false when there is none at the moment.
    virtual bool send_more() = 0;
    virtual void handle_reply(const request_tag& tag, const reply& answer) = 0;
    /// Forgets what was known of the server's side. Whether the file can be copied once more.
    virtual bool reset() = 0;

    [[nodiscard]] pipeline& server() const noexcept { return state_->server; }
    [[nodiscard]] copy_state& state() const noexcept { return *state_; }
    /// Sends a request whose answer goes to `handle_reply` with that step.
    template <class... Fields>
    void ask(const request& what, std::uint32_t step, const Fields&... fields)
    {
        server().send(what, {this, step}, fields...);
        ++unanswered_;
    }
    /// The same, of a part of the file: its length counts in the window of bytes.
    template <class... Fields>
    void ask_part(const request& what, const request_tag& part, const Fields&... fields)
    {
        server().send(what, part, fields...);
        note_sent(part.length);
    }
    void note_sent(std::uint32_t bytes) noexcept;
    /// `largest` is what the window may grow to.
    void note_answered(std::uint32_t bytes, std::uint64_t largest) noexcept;
    /// Bytes that came and cannot be given away yet: they count in the window as well.
    void note_kept(std::uint64_t bytes) noexcept;
    void note_given(std::uint64_t bytes) noexcept;
    /// How many answers are owed.
    [[nodiscard]] std::uint64_t unanswered() const noexcept { return unanswered_; }

    void send_open(std::uint32_t step, const std::string& path, std::uint32_t flags,
                   const attributes& initial = {});
    /// Keeps the handle. False when the server refused: the file is then postponed, or has failed.
    bool take_handle(const reply& answer, const std::string& subject);
    void ask_checksum(std::uint32_t step, const std::string& path);
    [[nodiscard]] bool is_open() const noexcept { return is_open_; }
    [[nodiscard]] const file_handle& handle() const noexcept { return handle_; }
    /// Sends CLOSE, if the file is open; nobody looks at the answer.
    void close();
    /// The same; the answer goes to `handle_reply`.
    void ask_close(std::uint32_t step);

    /// How much of the file is still to be asked for or sent, as far as that is known.
    void plan(std::uint64_t bytes) noexcept;
    [[nodiscard]] std::uint64_t planned() const noexcept { return planned_; }

    void get_ready();
    void end();
    [[nodiscard]] bool has_ended() const noexcept { return has_ended_; }
    [[nodiscard]] bool is_retry() const noexcept { return interruptions_ > 0; }

    /// Runs what may throw because of this file alone; false when it has failed.
    template <class Work>
    bool guarded(const Work& work) noexcept
    {
        try {
            work();
            return true;
        } catch (...) {
            fail(std::current_exception());
            return false;
        }
    }
    /// Whether it failed since the server has something else than was sent.
    [[nodiscard]] bool failed_by_content() const noexcept;
    void fail_refused(const std::string& subject, const reply& answer) noexcept;
    /// Replaces a refusal by the error that says why.
    void explain_failure(const copy_hooks& hooks, const std::string& path, bool is_upload);
    /// For what failed after the file had ended on its own side.
    void set_failure(std::exception_ptr why) noexcept { failure_ = std::move(why); }

private:
    void leave() noexcept;
    void leave_ready() noexcept;
    void note_closed() noexcept;

    copy_state* state_ = nullptr;
    file_handle handle_{};
    bool is_counted_ = false; ///< in the window of handles
    bool is_open_ = false;
    bool is_ready_ = false;
    bool has_ended_ = false;
    bool is_postponed_ = false;
    unsigned refusals_ = 0;
    unsigned interruptions_ = 0;
    std::uint64_t planned_ = 0;
    std::uint64_t bytes_in_flight_ = 0;
    std::uint64_t unanswered_ = 0;
    std::exception_ptr failure_{};
};

} // namespace qrftp::sftp

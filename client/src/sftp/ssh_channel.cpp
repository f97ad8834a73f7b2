#include "ssh_channel.hpp"

#include <qrftp/error.hpp>

#include <libssh/server.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

namespace qrftp::sftp {

using std::chrono::milliseconds;

namespace {

constexpr std::size_t most_written = std::size_t{256} * 1024; ///< libssh keeps what the socket does not take

/// libssh 0.10 opens the window of a channel only as far as a read asks for; 0.11 keeps it at 2 MiB by itself.
bool window_follows_reads()
{
    return ssh_version(SSH_VERSION_INT(0, 11, 0)) == nullptr;
}

} // namespace

channel_transport::channel_transport(std::unique_ptr<interruptible_wait> wait,
                                     std::unique_ptr<ssh_connection> connection, const ssh_settings& settings)
    : wait_(std::move(wait)), connection_(std::move(connection)), channel_(ssh_channel_new(session())),
      until_window_(window_follows_reads() ? 0 : std::numeric_limits<std::size_t>::max()),
      alive_interval_(settings.alive_interval), alive_count_max_(settings.alive_count_max)
{
    if (channel_ == nullptr) {
        throw std::bad_alloc();
    }
    ssh_set_counters(session(), &counted_, nullptr);
    const auto open = [&] { return ssh_channel_open_session(channel_); };
    const auto start = [&] { return ssh_channel_request_subsystem(channel_, "sftp"); };
    if (connection_->finish(open, SSH_AGAIN) != SSH_OK || connection_->finish(start, SSH_AGAIN) != SSH_OK) {
        if (!connection_->is_connected()) {
            lose();
        }
        throw NotSupported(wait_->subject(), {0, "it does not offer SFTP: " + connection_->last_words()});
    }
}

void channel_transport::lose() const
{
    throw ConnectionLost(wait_->subject(), {0, connection_->last_words()});
}

std::size_t channel_transport::take_ahead(std::span<char> buffer)
{
    const std::size_t size = std::min(buffer.size(), ahead_end_ - ahead_begin_);
    std::copy_n(ahead_.begin() + static_cast<std::ptrdiff_t>(ahead_begin_), size, buffer.begin());
    ahead_begin_ += size;
    return size;
}

std::size_t channel_transport::read_channel(char* buffer, std::size_t size)
{
    const auto most = static_cast<std::uint32_t>(std::min(size, window_));
    const int got = ssh_channel_read_timeout(channel_, buffer, most, 0, 0);
    if (got > 0) {
        const auto count = static_cast<std::size_t>(got);
        until_window_ -= std::min(until_window_, count);
        return count;
    }
    if (got == SSH_ERROR || ssh_channel_is_eof(channel_) != 0 || ssh_channel_is_closed(channel_) != 0) {
        lose();
    }
    return 0;
}

std::size_t channel_transport::read(std::span<char> buffer)
{
    std::size_t done = take_ahead(buffer);
    while (done < buffer.size()) {
        std::size_t got = 0;
        if (until_window_ == 0) {
            until_window_ = window_ / 4;
            ahead_.resize(window_);
            ahead_begin_ = 0;
            ahead_end_ = read_channel(ahead_.data(), window_);
            got = take_ahead(buffer.subspan(done));
        } else {
            got = read_channel(buffer.data() + done, buffer.size() - done);
        }
        if (got == 0) {
            break;
        }
        done += got;
    }
    return done;
}

/// Whether libssh still has bytes for the socket. Hands it what it takes.
bool channel_transport::is_unsent()
{
    const int result = ssh_blocking_flush(session(), 0);
    if (result == SSH_ERROR) {
        lose();
    }
    return result == SSH_AGAIN;
}

std::size_t channel_transport::write(std::string_view bytes)
{
    if (is_unsent()) {
        return 0;
    }
    const auto size = std::min({bytes.size(), most_written, std::size_t{ssh_channel_window_size(channel_)}});
    if (size == 0) {
        return 0;
    }
    const int sent = ssh_channel_write(channel_, bytes.data(), static_cast<std::uint32_t>(size));
    if (sent == SSH_ERROR) {
        lose();
    }
    return static_cast<std::size_t>(std::max(sent, 0));
}

void channel_transport::wait(bool to_write, milliseconds longest)
{
    const bool unsent = is_unsent();
    if ((to_write && !unsent && ssh_channel_window_size(channel_) > 0) || ahead_begin_ < ahead_end_ ||
        ssh_channel_poll(channel_, 0) != 0) {
        return;
    }
    if (alive_interval_.count() > 0) {
        longest = std::min<milliseconds>(longest, alive_interval_);
    }
    const auto events = static_cast<short>(POLLIN | (unsent ? POLLOUT : 0));
    const bool is_ready = (wait_->poll(ssh_get_fd(session()), events, longest) & ~POLLOUT) != 0;
    if (!is_ready) {
        keep_alive();
    }
}

/// Asks the server whether it is there when nothing has arrived for an interval (ssh_config(5),
/// ServerAliveInterval).
void channel_transport::keep_alive()
{
    const auto now = clock::now();
    if (std::exchange(seen_bytes_, counted_.in_bytes) != counted_.in_bytes) {
        last_arrival_ = now;
        unanswered_ = 0;
    } else if (alive_interval_.count() > 0 && now - last_arrival_ >= (unanswered_ + 1) * alive_interval_) {
        if (unanswered_++ >= alive_count_max_) {
            throw ConnectionLost(wait_->subject(), {0, "the server does not answer any more"});
        }
        ssh_send_keepalive(session());
    }
}

} // namespace qrftp::sftp

#include "ssh_channel.hpp"

#include <qrftp/error.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

namespace qrftp::sftp {

using std::chrono::milliseconds;

namespace {

constexpr std::size_t most_written = std::size_t{256} * 1024; ///< libssh keeps what the socket does not take

constexpr milliseconds longest_close(200);

/// libssh 0.10 opens the window of a channel only as far as a read asks for; 0.11 keeps it at 2 MiB by itself.
bool window_follows_reads()
{
    return ssh_version(SSH_VERSION_INT(0, 11, 0)) == nullptr;
}

struct readiness {
    int unsent; ///< SSH_AGAIN while libssh has something for the socket
    bool is_ready;
    int fd;
};

} // namespace

channel_transport::channel_transport(std::shared_ptr<interruptible_wait> wait,
                                     std::shared_ptr<ssh_connection> connection)
    : wait_(std::move(wait)), connection_(std::move(connection)),
      until_window_(window_follows_reads() ? 0 : std::numeric_limits<std::size_t>::max())
{
    connection_->join(*wait_);
    try {
        open();
    } catch (...) {
        leave();
        throw;
    }
}

channel_transport::~channel_transport()
{
    leave();
}

/// The last channel ends with the connection. Another one is closed, for which a busy line gets a moment.
void channel_transport::leave() noexcept
{
    if (!connection_->leave(*wait_) || channel_ == nullptr) {
        return;
    }
    const auto close = [this] {
        ssh_blocking_flush(session(), 0);
        if (!is_open_) { // Its answer is awaited, or it was refused.
            const int answer = ssh_channel_open_session(channel_);
            is_open_ = answer == SSH_OK;
            return is_open_ ? SSH_AGAIN : answer;
        }
        return ssh_channel_close(channel_);
    };
    try {
        const auto deadline = std::chrono::steady_clock::now() + longest_close;
        while (locked(close) == SSH_AGAIN && std::chrono::steady_clock::now() < deadline) {
            wait_->poll(locked([this] { return ssh_get_fd(session()); }), POLLIN, longest_close / 20);
        }
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): the connection will end it
    }
    locked([this] { return ssh_channel_free(channel_), 0; });
}

void channel_transport::open()
{
    channel_ = locked([this] { return ssh_channel_new(session()); });
    if (channel_ == nullptr) {
        throw std::bad_alloc();
    }
    const auto open_session = [this] { return ssh_channel_open_session(channel_); };
    if (connection_->finish(*wait_, open_session, SSH_AGAIN) != SSH_OK) {
        refuse();
    }
    is_open_ = true;
    wait_->restart();
    has_started();
}

/// Whether the server has the subsystem. Asks for it when called first. libssh does not notice that a channel
/// was closed in place of an answer.
bool channel_transport::has_started()
{
    if (is_starting_) {
        const int result = locked([this] {
            const int answer = ssh_channel_request_subsystem(channel_, "sftp");
            const bool is_over = ssh_channel_is_eof(channel_) != 0 || ssh_channel_is_closed(channel_) != 0;
            return answer == SSH_AGAIN && is_over ? SSH_ERROR : answer;
        });
        if (result != SSH_OK && result != SSH_AGAIN) {
            refuse();
        }
        is_starting_ = result == SSH_AGAIN;
    }
    return !is_starting_;
}

void channel_transport::refuse() const
{
    if (!locked([this] { return connection_->is_connected(); })) {
        lose();
    }
    const std::string words = locked([this] { return connection_->last_words(); });
    throw NotSupported(wait_->subject(), {0, "it does not offer SFTP: " + words});
}

void channel_transport::lose() const
{
    throw ConnectionLost(wait_->subject(), {0, locked([this] { return connection_->last_words(); })});
}

transport::opener channel_transport::further_streams() const
{
    return [connection = connection_, subject = wait_->subject(),
            limit = wait_->limit()](const session_options& options) -> std::unique_ptr<transport> {
        auto wait = std::make_shared<interruptible_wait>(subject, options.stop, limit);
        return std::make_unique<channel_transport>(std::move(wait), connection);
    };
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
    const int got = locked([&] {
        const int count = ssh_channel_read_timeout(channel_, buffer, most, 0, 0);
        const bool is_over = ssh_channel_is_eof(channel_) != 0 || ssh_channel_is_closed(channel_) != 0;
        return count <= 0 && is_over ? SSH_ERROR : count;
    });
    if (got > 0) {
        const auto count = static_cast<std::size_t>(got);
        until_window_ -= std::min(until_window_, count);
        return count;
    }
    if (got == SSH_ERROR) {
        lose();
    }
    return 0;
}

std::size_t channel_transport::read(std::span<char> buffer)
{
    if (!has_started()) {
        return 0;
    }
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

std::size_t channel_transport::write(std::string_view bytes)
{
    const int sent = locked([&] {
        const int unsent = ssh_blocking_flush(session(), 0); // what libssh still has for the socket
        const std::size_t size =
            std::min({bytes.size(), most_written, std::size_t{ssh_channel_window_size(channel_)}});
        if (unsent == SSH_ERROR) {
            return SSH_ERROR;
        }
        return unsent == SSH_AGAIN || size == 0
                   ? 0
                   : ssh_channel_write(channel_, bytes.data(), static_cast<std::uint32_t>(size));
    });
    if (sent == SSH_ERROR) {
        lose();
    }
    return static_cast<std::size_t>(std::max(sent, 0));
}

void channel_transport::wait(bool to_write, milliseconds longest)
{
    const bool has_begun = !is_starting_;
    if (has_started() != has_begun) {
        return;
    }
    const readiness now = locked([&] {
        const int unsent = ssh_blocking_flush(session(), 0);
        const bool is_writable = to_write && unsent == SSH_OK && ssh_channel_window_size(channel_) > 0;
        const bool is_readable = has_begun && (ahead_begin_ < ahead_end_ || ssh_channel_poll(channel_, 0) != 0);
        return readiness{unsent, is_readable || is_writable, ssh_get_fd(session())};
    });
    if (now.unsent == SSH_ERROR) {
        lose();
    }
    if (now.is_ready) {
        return;
    }
    longest = connection_->until_alive(longest);
    const auto events = static_cast<short>(POLLIN | (now.unsent == SSH_AGAIN ? POLLOUT : 0));
    if (!has_begun) {
        std::array<pollfd, 1> one{{{now.fd, events, 0}}};
        wait_->wait(one, longest);
    } else if ((wait_->poll(now.fd, events, longest) & ~POLLOUT) == 0) {
        connection_->keep_alive(*wait_);
    }
}

} // namespace qrftp::sftp

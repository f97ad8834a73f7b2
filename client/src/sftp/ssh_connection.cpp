#include "ssh_connection.hpp"

#include "../base64.hpp"
#include "ssh_algorithms.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>
#include <libssh/server.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <new>
#include <sys/socket.h>
#include <utility>

namespace qrftp::sftp {

namespace {

void set_low_water(int fd, int bytes)
{
    // Where a socket does not have it, an FTP server is taken for any other that is not SSH.
    [[maybe_unused]] const int result = ::setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof bytes);
}

} // namespace

void ssh_connection::deleter::operator()(ssh_session session) const noexcept
{
    ssh_free(session); // ssh_disconnect would leave the socket open, since it was not libssh that opened it.
}

ssh_connection::ssh_connection(byte_connection connection, std::shared_ptr<interruptible_wait> wait)
    : process_(std::move(connection.process)), wait_(std::move(wait)), session_(ssh_new()),
      socket_(std::move(connection.socket))
{
    if (session_ == nullptr) {
        throw std::bad_alloc();
    }
    ssh_set_blocking(get(), 0);
    ssh_set_counters(get(), &counted_, nullptr);
    // What a server asks for is refused; else libssh keeps it until somebody asks.
    ssh_set_message_callback(
        get(), [](ssh_session, ssh_message, void*) { return 1; }, nullptr);
}

ssh_connection::~ssh_connection() = default;

void ssh_connection::set(ssh_options_e option, const void* value)
{
    if (ssh_options_set(get(), option, value) != SSH_OK) {
        throw InvalidOption(wait_->subject(), last_words());
    }
}

void ssh_connection::exchange_keys(const ssh_settings& settings, const std::vector<std::string>& known_types)
{
    const bool no = false;
    const std::string host_keys = host_key_algorithms(known_types);
    alive_interval_ = settings.alive_interval;
    alive_count_max_ = settings.alive_count_max;
    set(SSH_OPTIONS_PROCESS_CONFIG, &no); // The configuration is read by ssh_config alone.
    set(SSH_OPTIONS_KNOWNHOSTS,
        "/dev/null"); // libssh would order the types of host key by its own look at the files.
    set(SSH_OPTIONS_GLOBAL_KNOWNHOSTS, "/dev/null");
    set(SSH_OPTIONS_USER, settings.user.c_str());
    set(SSH_OPTIONS_HOSTKEYS, host_keys.c_str());
    set(SSH_OPTIONS_CIPHERS_C_S, preferred_ciphers());
    set(SSH_OPTIONS_CIPHERS_S_C, preferred_ciphers());
    const int fd = socket_.get();
    set(SSH_OPTIONS_FD, &fd);
    socket_.release(); // libssh closes it
    // The first bytes are looked at before libssh takes them: its first call may not read.
    set_low_water(fd, std::numeric_limits<int>::max());
    int result = ssh_connect(get());
    set_low_water(fd, 1);
    for (wait_->restart(); result == SSH_AGAIN; result = ssh_connect(get())) {
        wait_for_server(*wait_);
        refuse_ftp(fd, settings);
    }
    if (result != SSH_OK) {
        throw NoConnection(wait_->subject(), {0, first_line_.starts_with("SSH-") ? last_words() : not_ssh()});
    }
}

/// A server may send lines before its identification (RFC 4253, 4.2), but none that begins an FTP dialogue.
void ssh_connection::refuse_ftp(int fd, const ssh_settings& settings)
{
    std::array<char, 255> bytes{};
    const ssize_t size =
        first_line_.empty() ? ::recv(fd, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT) : 0;
    if (size <= 0) {
        return;
    }
    first_line_.assign(bytes.data(), static_cast<std::size_t>(size));
    first_line_ = first_line_.substr(0, first_line_.find_first_of("\r\n"));
    if (first_line_.starts_with("220") || first_line_.starts_with("120")) { // RFC 959, 5.4
        throw NoConnection(wait_->subject(), {0, fmt::format("this is an FTP server; write ftp://{}:{}/",
                                                             settings.host, settings.port)});
    }
}

std::string ssh_connection::not_ssh() const
{
    return first_line_.empty() ? last_words()
                               : fmt::format("it is not an SSH server: \"{}\"", masked(first_line_));
}

void ssh_connection::wait_for_server(interruptible_wait& wait)
{
    const auto [fd, unsent] = locked(wait, [this] {
        return std::pair(ssh_get_fd(get()), (ssh_get_poll_flags(get()) & SSH_WRITE_PENDING) != 0);
    });
    wait.wait(fd, static_cast<short>(POLLIN | (unsent ? POLLOUT : 0)));
}

void ssh_connection::join(interruptible_wait& wait)
{
    const std::lock_guard lock(mutex_);
    joined_.push_back(&wait);
}

bool ssh_connection::leave(const interruptible_wait& wait) noexcept
{
    const std::lock_guard lock(mutex_);
    std::erase(joined_, &wait);
    return !joined_.empty();
}

void ssh_connection::wake_others(const interruptible_wait& wait) const
{
    for (const interruptible_wait* const each : joined_) {
        if (each != &wait) {
            each->wake();
        }
    }
}

std::chrono::milliseconds ssh_connection::until_alive(std::chrono::milliseconds longest) const
{
    return alive_interval_.count() > 0 ? std::min<std::chrono::milliseconds>(longest, alive_interval_)
                                       : longest;
}

void ssh_connection::keep_alive(const interruptible_wait& wait)
{
    const std::lock_guard lock(mutex_);
    const auto now = clock::now();
    if (std::exchange(seen_bytes_, counted_.in_bytes) != counted_.in_bytes) {
        last_arrival_ = now;
        unanswered_ = 0;
    } else if (alive_interval_.count() > 0 && now - last_arrival_ >= (unanswered_ + 1) * alive_interval_) {
        if (unanswered_++ >= alive_count_max_) {
            throw ConnectionLost(wait.subject(), {0, "the server does not answer any more"});
        }
        ssh_send_keepalive(get());
    }
}

host_key ssh_connection::server_key(const std::string& host) const
{
    ssh_key key = nullptr;
    char* text = nullptr;
    std::string blob;
    if (ssh_get_server_publickey(get(), &key) == SSH_OK) {
        if (ssh_pki_export_pubkey_base64(key, &text) == SSH_OK) {
            blob = from_base64(text);
        }
        ssh_string_free_char(text);
        ssh_key_free(key);
    }
    if (blob.empty()) {
        throw ProtocolError(wait_->subject(), "its host key cannot be read");
    }
    return {host, std::string(type_of_key(blob)), blob};
}

std::string ssh_connection::last_words() const
{
    return masked(text_of(ssh_get_error(get())));
}

std::string ssh_connection::identification() const
{
    return text_of(ssh_get_serverbanner(get()));
}

std::string ssh_connection::ciphers() const
{
    const std::string in = text_of(ssh_get_cipher_in(get()));
    const std::string out = text_of(ssh_get_cipher_out(get()));
    return in == out ? in : fmt::format("{} in, {} out", in, out);
}

} // namespace qrftp::sftp

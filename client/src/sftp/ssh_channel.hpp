#pragma once

#include "ssh_connection.hpp"
#include "ssh_settings.hpp"
#include "transport.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stop_token>
#include <string_view>
#include <vector>

namespace qrftp::sftp {

/// The channel of an SSH connection that a subsystem's packets travel over. A stop request wakes `wait` once.
class channel_transport final : public transport {
public:
    /// Opens the channel and starts the subsystem "sftp". Throws `ConnectionLost`, `NotSupported`, `Timeout`,
    /// `Cancelled`. `wait` is that of `connection`.
    channel_transport(std::unique_ptr<interruptible_wait> wait, std::unique_ptr<ssh_connection> connection,
                      const ssh_settings& settings);

    std::size_t read(std::span<char> buffer) override;
    std::size_t write(std::string_view bytes) override;
    void wait(bool to_write, std::chrono::milliseconds longest) override;
    void set_window(std::size_t bytes) override { window_ = bytes; }

private:
    using clock = std::chrono::steady_clock;

    [[nodiscard]] ssh_session session() const { return connection_->get(); }
    std::size_t read_channel(char* buffer, std::size_t size);
    std::size_t take_ahead(std::span<char> buffer);
    bool is_unsent();
    void keep_alive();
    [[noreturn]] void lose() const;

    std::unique_ptr<interruptible_wait> wait_;
    ssh_counter_struct counted_{}; ///< what libssh has read from the socket, whoever asked for it
    std::uint64_t seen_bytes_ = 0;
    std::unique_ptr<ssh_connection> connection_;
    ssh_channel channel_; ///< the session frees it

    std::size_t window_ = std::size_t{4} * 1024 * 1024;
    std::size_t until_window_; ///< bytes to read until the window is opened again
    std::vector<char> ahead_;  ///< what a read that opened the window got, and nobody took yet
    std::size_t ahead_begin_ = 0;
    std::size_t ahead_end_ = 0;

    std::chrono::seconds alive_interval_;
    unsigned alive_count_max_;
    unsigned unanswered_ = 0;
    clock::time_point last_arrival_ = clock::now();
};

} // namespace qrftp::sftp

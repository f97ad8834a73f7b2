#pragma once

#include "ssh_connection.hpp"
#include "transport.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace qrftp::sftp {

/// A channel of an SSH connection that a subsystem's packets travel over. A stop request wakes `wait` once.
class channel_transport final : public transport {
public:
    /// Opens the channel and asks for the subsystem "sftp". What is written may follow before the server says
    /// that it has it, as it does with ssh(1); reading and waiting throw `NotSupported` when it has not. Throws
    /// `ConnectionLost`, `NotSupported`, `Timeout`, `Cancelled`.
    channel_transport(std::shared_ptr<interruptible_wait> wait, std::shared_ptr<ssh_connection> connection);
    ~channel_transport() override;

    std::size_t read(std::span<char> buffer) override;
    std::size_t write(std::string_view bytes) override;
    void wait(bool to_write, std::chrono::milliseconds longest) override;
    void set_window(std::size_t bytes) override { window_ = bytes; }
    [[nodiscard]] opener further_streams() const override;

private:
    [[nodiscard]] ssh_session session() const { return connection_->get(); }
    /// Makes a call of libssh, for which other channels may wait.
    template <class Call>
    auto locked(Call call) const
    {
        return connection_->locked(*wait_, call);
    }
    void open();
    void leave() noexcept;
    bool has_started();
    std::size_t read_channel(char* buffer, std::size_t size);
    std::size_t take_ahead(std::span<char> buffer);
    [[noreturn]] void refuse() const;
    [[noreturn]] void lose() const;

    std::shared_ptr<interruptible_wait> wait_;
    std::shared_ptr<ssh_connection> connection_;
    ssh_channel channel_ = nullptr; ///< the session frees the last one
    bool is_open_ = false;
    bool is_starting_ = true; ///< the subsystem

    std::size_t window_ = std::size_t{4} * 1024 * 1024;
    std::size_t until_window_; ///< bytes to read until the window is opened again
    std::vector<char> ahead_;  ///< what a read that opened the window got, and nobody took yet
    std::size_t ahead_begin_ = 0;
    std::size_t ahead_end_ = 0;
};

} // namespace qrftp::sftp

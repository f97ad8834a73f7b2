#pragma once

#include <qrftp/options.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string_view>

namespace qrftp::sftp {

/// A stream of bytes in both directions, over which SFTP packets travel: an SSH channel, or a socket in tests.
/// Neither reading nor writing blocks; `wait` does. One thread at a time.
///
/// Every member throws `ConnectionLost` when the other side is gone.
class transport {
public:
    transport() = default;
    transport(const transport&) = delete;
    transport& operator=(const transport&) = delete;
    virtual ~transport() = default;

    /// Reads what has arrived, at most as much as fits; 0 when nothing has.
    virtual std::size_t read(std::span<char> buffer) = 0;

    /// Sends the beginning of `bytes`, as much as goes without waiting; returns how much that was, 0 when none.
    virtual std::size_t write(std::string_view bytes) = 0;

    /// Returns when something can be read, when something can be written if `to_write`, or after `longest`.
    virtual void wait(bool to_write, std::chrono::milliseconds longest) = 0;

    /// How much the other side may send before it is read: where that is this side's to say.
    virtual void set_window(std::size_t /*bytes*/) {}

    /// Opens a further stream of the same connection, for another thread. Of the options, the stop token
    /// counts. May be called in any thread, and after this stream has ended.
    using opener = std::function<std::unique_ptr<transport>(const session_options&)>;
    /// Null where the connection carries no other stream.
    [[nodiscard]] virtual opener further_streams() const { return {}; }
};

} // namespace qrftp::sftp

#pragma once

#include "../protocol.hpp"
#include "pipeline.hpp"

#include <cstddef>
#include <exception>
#include <functional>
#include <span>
#include <vector>

namespace qrftp::sftp {

/// Changes that do not depend on each other, many in flight at once.
class change_batch final : public reply_handler {
public:
    /// Takes the index of a change and what was thrown for it, or null. It may throw, which ends the batch.
    using done_function = std::function<void(std::size_t, std::exception_ptr)>;

    change_batch(std::span<const path_change> changes, done_function on_done);
    change_batch(const change_batch&) = delete;
    change_batch& operator=(const change_batch&) = delete;
    ~change_batch() = default;

    /// Carries them out. When the session ends in between, everything that was answered has been reported.
    void run(pipeline& server);
    /// Those that have not been answered: they may have been carried out.
    [[nodiscard]] std::vector<std::size_t> unanswered() const;

    void on_reply(const request_tag& tag, const reply& answer) override;

private:
    void report();

    std::span<const path_change> changes_;
    done_function on_done_;
    std::size_t next_ = 0;
    std::size_t reported_ = 0;
    std::vector<bool> is_answered_;
    std::vector<std::pair<std::size_t, std::exception_ptr>> answered_{};
};

/// Sends the request that carries out `change`.
void send_change(pipeline& server, const request_tag& tag, const path_change& change);

} // namespace qrftp::sftp

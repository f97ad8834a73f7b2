#pragma once

#include "../protocol.hpp"

#include <qrftp/session.hpp>

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

namespace qrftp {

/// Further connections like the first one of a session, or further streams of that one, each with a thread of
/// its own. They open as soon as the pool is made, while the caller does something else. Those that the server
/// refuses are done without: many servers limit the connections of one user.
class connection_pool {
public:
    using work = std::function<void(protocol& server, unsigned job)>;

    /// Opens `further` connections like that of `first`, and `streams` of it.
    connection_pool(const session& first, unsigned further, unsigned streams = 0);
    connection_pool(const connection_pool&) = delete;
    connection_pool& operator=(const connection_pool&) = delete;
    ~connection_pool();

    /// The jobs from 1 to this one are streams of the first connection.
    [[nodiscard]] unsigned streams() const { return streams_; }

    /// Asks for the end when the session's own token does, and when a part of the work has failed.
    [[nodiscard]] std::stop_token stop_token() const { return stop_.get_token(); }

    /// Runs `task` on `first` as job 0, and on every connection that comes about as jobs 1, 2, …; returns when
    /// all of them have returned. The first failure ends the others and is thrown. To be called once.
    void run(protocol& first, const work& task);

private:
    struct worker {
        std::stop_source stop;
        bool working = false;
        std::jthread thread;
    };

    void start(const protocol::opener& open, session_options options);
    void serve(const protocol::opener& open, const session_options& options, worker& self,
               unsigned job) noexcept;
    const work* wait_for_work(worker& self);
    void fail(std::exception_ptr why);
    void stop_idle_workers();

    std::mutex mutex_;
    std::condition_variable_any changed_;
    const work* task_ = nullptr;
    bool closed_ = false; ///< no more work is given out
    std::exception_ptr failure_;
    std::stop_source stop_;
    std::vector<std::unique_ptr<worker>> workers_;
    unsigned streams_ = 0;
    std::stop_callback<std::function<void()>> on_stop_;
};

} // namespace qrftp

#include "connection_pool.hpp"

#include "../session_access.hpp"

#include <utility>

namespace qrftp {

connection_pool::connection_pool(const session& first, unsigned further, unsigned streams)
    : on_stop_(session_access::options(first).stop, [this] { stop_.request_stop(); })
{
    const session_options& options = session_access::options(first);
    if (const auto open = streams == 0 ? protocol::opener() : session_access::server(first).further_streams()) {
        while (streams_ < streams) {
            ++streams_;
            start(open, options);
        }
    }
    for (; further > 0; --further) {
        start([server = first.location()](const session_options& own) { return protocol::open(server, own); },
              options);
    }
}

void connection_pool::start(const protocol::opener& open, session_options options)
{
    worker& self = *workers_.emplace_back(std::make_unique<worker>());
    options.stop = self.stop.get_token();
    const auto job = static_cast<unsigned>(workers_.size());
    self.thread =
        std::jthread([this, open, own = std::move(options), &self, job] { serve(open, own, self, job); });
}

connection_pool::~connection_pool()
{
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    for (const auto& each : workers_) {
        each->stop.request_stop();
    }
    changed_.notify_all();
}

void connection_pool::run(protocol& first, const work& task)
{
    {
        const std::lock_guard lock(mutex_);
        task_ = &task;
    }
    changed_.notify_all();
    try {
        task(first, 0);
    } catch (...) {
        fail(std::current_exception());
    }
    stop_idle_workers();
    for (const auto& each : workers_) {
        each->thread.join();
    }
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void connection_pool::serve(const protocol::opener& open, const session_options& options, worker& self,
                            unsigned job) noexcept
{
    // What asks for the end of all ends this connection's requests, too.
    const std::stop_callback follow(stop_.get_token(), [&self] { self.stop.request_stop(); });
    std::unique_ptr<protocol> opened;
    try {
        opened = open(options);
    } catch (...) {
        return; // The other connections do the work.
    }
    const work* const task = wait_for_work(self);
    if (task == nullptr) {
        return;
    }
    try {
        (*task)(*opened, job);
    } catch (...) {
        fail(std::current_exception());
    }
}

const connection_pool::work* connection_pool::wait_for_work(worker& self)
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, self.stop.get_token(), [this] { return task_ != nullptr || closed_; });
    if (closed_ || self.stop.stop_requested()) {
        return nullptr;
    }
    self.working = true;
    return task_;
}

void connection_pool::fail(std::exception_ptr why)
{
    {
        const std::lock_guard lock(mutex_);
        if (failure_) {
            return;
        }
        failure_ = std::move(why);
    }
    stop_.request_stop();
}

/// Everything has been handed out: who is still logging in is not needed.
void connection_pool::stop_idle_workers()
{
    std::vector<std::stop_source> idle;
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        for (const auto& each : workers_) {
            if (!each->working) {
                idle.push_back(each->stop);
            }
        }
    }
    for (const std::stop_source& each : idle) {
        each.request_stop();
    }
    changed_.notify_all();
}

} // namespace qrftp

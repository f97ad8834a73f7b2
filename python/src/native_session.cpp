#include "native_session.hpp"

#include "interruptible.hpp"
#include "options.hpp"

#include <stdexcept>
#include <utility>

namespace qrftp::python {

namespace {

/// The one call that may be under way.
class only_call {
public:
    explicit only_call(std::atomic<bool>& busy) : busy_(busy)
    {
        if (busy_.exchange(true)) {
            throw std::runtime_error("a Session is for one thread at a time, and a call is under way; "
                                     "use clone() to have one for each thread");
        }
    }
    only_call(const only_call&) = delete;
    only_call& operator=(const only_call&) = delete;
    ~only_call() { busy_.store(false); }

private:
    std::atomic<bool>& busy_;
};

} // namespace

native_session::native_session(const std::string& server, const py::dict& given, std::string folder)
    : location_(url::parse(server)), options_(to_session_options(given, failure_)), folder_(std::move(folder))
{
}

// NOLINTNEXTLINE(bugprone-exception-escape): only where Python has ended
native_session::~native_session()
{
    const py::gil_scoped_release released;
    disconnect();
}

void native_session::call_with(native_session& other, const std::function<void(session&, session&)>& work)
{
    run([&] { work(connected(), other.connected()); }, &other == this ? nullptr : &other);
}

void native_session::change_folder(const std::string& path)
{
    folder_ = call([&](session& opened) { return opened.change_folder(path); });
}

void native_session::close()
{
    const only_call guard(busy_);
    closed_ = true;
    const py::gil_scoped_release released;
    disconnect();
}

native_session::file_id native_session::open_file(const std::string& path)
{
    return call([&](session& opened) {
        files_.emplace(++last_file_, opened.open(path));
        return last_file_;
    });
}

void native_session::close_file(file_id id, bool at_once)
{
    abandoned_.push_back(id);
    if (at_once && !closed_ && !busy_.load()) {
        run([] {});
    }
}

void native_session::run(const std::function<void()>& work, native_session* other)
{
    const only_call guard(busy_);
    std::optional<only_call> other_guard;
    if (other != nullptr) {
        other_guard.emplace(other->busy_);
        other->failure_->clear();
    }
    if (closed_ || (other != nullptr && other->closed_)) {
        throw Closed("session");
    }
    failure_->clear();
    const std::stop_callback stops_both(stop_.get_token(), [other] {
        if (other != nullptr) {
            other->stop_.request_stop();
        }
    });
    std::exception_ptr failure;
    try {
        run_interruptibly(stop_, [&, abandoned = std::exchange(abandoned_, {})] {
            for (const file_id id : abandoned) {
                files_.erase(id);
            }
            work();
        });
    } catch (...) {
        failure = std::current_exception();
    }
    for (native_session* const each : {this, other}) {
        if (each != nullptr) {
            each->finish_call();
        }
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

/// Throws what a callback has thrown, unless a signal ended the call.
void native_session::finish_call()
{
    if (stop_.stop_requested()) {
        const py::gil_scoped_release released;
        disconnect();
        stop_ = std::stop_source();
    } else {
        failure_->rethrow();
    }
}

session& native_session::connected()
{
    if (!session_) {
        session_options options = options_;
        options.stop = stop_.get_token();
        session fresh(location_, std::move(options));
        if (!folder_.empty()) {
            fresh.change_folder(folder_);
        }
        session_ = std::move(fresh);
    }
    return *session_;
}

void native_session::disconnect()
{
    files_.clear();
    session_.reset();
}

} // namespace qrftp::python

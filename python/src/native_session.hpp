#pragma once

#include "callback.hpp"

#include <qrftp/session.hpp>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <type_traits>
#include <vector>

namespace qrftp::python {

/// A session as Python uses it. Connects when it is first needed, and anew after a call that a signal ended,
/// since the stop token of a session ends all its later requests too.
///
/// All members are called with the GIL held, which `call` lets go of. One call at a time; files that are open
/// belong to the session and are read by its calls.
class native_session {
public:
    using file_id = unsigned;

    /// Sends nothing. `folder` is the working folder to begin in; empty means that of the login.
    native_session(const std::string& server, const py::dict& given, std::string folder);
    native_session(const native_session&) = delete;
    native_session& operator=(const native_session&) = delete;
    ~native_session(); // NOLINT(bugprone-exception-escape): only where Python has ended

    [[nodiscard]] const std::shared_ptr<callback_failure>& failure() const { return failure_; }
    [[nodiscard]] const std::string& folder() const { return folder_; }
    [[nodiscard]] bool is_closed() const { return closed_; }

    /// What `work` returns for the session, without the GIL. Throws what `work`, a callback and a signal
    /// handler throw, `std::runtime_error` while another call is under way and `Closed` after `close`.
    template <class Work>
    std::invoke_result_t<Work, session&> call(const Work& work)
    {
        using result = std::invoke_result_t<Work, session&>;
        if constexpr (std::is_void_v<result>) {
            run([&] { work(connected()); });
        } else {
            std::optional<result> value;
            run([&] { value.emplace(work(connected())); });
            return *std::move(value);
        }
    }

    /// Runs `work` with this session and another one, which may be the same; both are in use meanwhile.
    void call_with(native_session& other, const std::function<void(session&, session&)>& work);

    void change_folder(const std::string& path);
    void close();

    /// Opens a file; `read_file` opens it again where the connection was another one then.
    [[nodiscard]] file_id open_file(const std::string& path);
    /// What `read` returns for the file.
    template <class Read>
    auto read_file(file_id id, const std::string& path, const Read& read)
    {
        return call([&](session& opened) {
            auto found = files_.find(id);
            if (found == files_.end()) {
                found = files_.emplace(id, opened.open(path)).first;
            }
            return read(found->second);
        });
    }
    /// Closes the file, or lets the next call close it: without `at_once`, and where a call is under way.
    void close_file(file_id id, bool at_once);

private:
    void run(const std::function<void()>& work, native_session* other = nullptr);
    void finish_call();
    [[nodiscard]] session& connected();
    void disconnect();

    url location_;
    std::shared_ptr<callback_failure> failure_ = std::make_shared<callback_failure>();
    session_options options_;
    std::string folder_;
    bool closed_ = false;
    std::atomic<bool> busy_ = false;
    std::stop_source stop_;
    std::optional<session> session_;
    std::map<file_id, remote_file> files_; // destroyed before the session
    file_id last_file_ = 0;
    std::vector<file_id> abandoned_;
};

} // namespace qrftp::python

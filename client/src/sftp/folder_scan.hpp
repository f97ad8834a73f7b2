#pragma once

#include "../protocol.hpp"
#include "copy_window.hpp"
#include "pipeline.hpp"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace qrftp::sftp {

/// Lists folders, many at once and each with several READDIR in flight, over one connection after another.
class folder_scan {
public:
    using explain_function =
        std::function<std::exception_ptr(const std::string& folder, std::exception_ptr why)>;

    /// Refuses a folder whose names take more than `limit` bytes. `explain` makes of a refusal the error that
    /// says why.
    folder_scan(folder_queue& folders, std::uint64_t limit, explain_function explain);
    folder_scan(const folder_scan&) = delete;
    folder_scan& operator=(const folder_scan&) = delete;
    ~folder_scan();

    /// Lists until the queue gives no more and none is under way. What ends the session is thrown; the folders
    /// that were under way are then listed anew by the next call, once.
    void run(pipeline& server);
    /// The connection is lost: whether `run` is to go on over another one.
    [[nodiscard]] bool retry(const std::exception_ptr& why);
    /// Whether the queue has ended by throwing: there is nothing to go on with.
    [[nodiscard]] bool is_over() const noexcept { return is_over_; }
    /// There will be no other connection: reports what was to be listed anew.
    void give_up(const std::exception_ptr& why) noexcept;

private:
    class job;

    void start_folders(pipeline& server, handle_window& handles);
    [[nodiscard]] std::unique_ptr<job> next_folder();
    void report();
    [[nodiscard]] std::unique_ptr<job> take(const job* wanted);
    void tell(const job& ended, const std::exception_ptr& failure);
    void try_to_tell(const job& ended, const std::exception_ptr& failure) noexcept;
    void stop(pipeline& server, const std::exception_ptr& why);

    folder_queue& folders_;
    std::uint64_t limit_;
    explain_function explain_;
    std::vector<std::unique_ptr<job>> active_{};
    std::vector<std::unique_ptr<job>> again_{};
    std::vector<std::unique_ptr<job>> alone_{}; ///< refused while others were open
    std::vector<job*> ended_{};
    std::size_t reported_ = 0;
    retry_policy retries_{};
    bool is_over_ = false;
};

} // namespace qrftp::sftp

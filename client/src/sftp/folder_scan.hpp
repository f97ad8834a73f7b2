#pragma once

#include "../protocol.hpp"
#include "copy_window.hpp"
#include "pipeline.hpp"

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace qrftp::sftp {

/// Lists folders, many at once and each with several READDIR in flight, over one connection after another.
class folder_scan {
public:
    explicit folder_scan(folder_queue& folders);
    folder_scan(const folder_scan&) = delete;
    folder_scan& operator=(const folder_scan&) = delete;
    ~folder_scan();

    /// Lists until the queue gives no more and none is under way. What ends the session is thrown; the folders
    /// that were under way are then listed anew by the next call, once.
    void run(pipeline& server);
    /// Whether a folder has ended since the last time that this was asked.
    [[nodiscard]] bool has_advanced();

private:
    class job;

    void start_folders(pipeline& server, handle_window& handles);
    [[nodiscard]] std::unique_ptr<job> next_folder();
    void report();
    [[nodiscard]] std::unique_ptr<job> take(const job* wanted);
    void stop(pipeline& server, const std::exception_ptr& why);

    folder_queue& folders_;
    std::vector<std::unique_ptr<job>> active_{};
    std::vector<std::unique_ptr<job>> again_{};
    std::vector<std::unique_ptr<job>> alone_{}; ///< refused while others were open
    std::vector<job*> ended_{};
    std::size_t reported_ = 0;
};

} // namespace qrftp::sftp

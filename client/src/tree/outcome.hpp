#pragma once

#include <qrftp/error.hpp>
#include <qrftp/tree.hpp>

#include <chrono>
#include <cstddef>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

namespace qrftp {

/// Throws `why` unless the options collect failures; the end that somebody asked for is never collected.
void throw_unless_collected(const tree_options& options, const std::exception_ptr& why);

/// What becomes of the steps of a tree: collects the result, calls the callbacks one at a time, and throws what
/// is not to be collected. Any number of threads.
class tree_outcome {
public:
    explicit tree_outcome(const tree_options& options) : options_(options) {}

    /// What is to be copied as a whole.
    void expect(const std::vector<tree_action>& copies);

    /// Does what belongs to a step, and notes how it went.
    template <class Work>
    void settle(const tree_action& action, const Work& work)
    {
        try {
            work();
        } catch (const error&) {
            failed(action.path, std::current_exception());
            return;
        }
        done(action);
    }
    void done(const tree_action& action);
    /// Throws `why` unless the options collect failures; the end that somebody asked for is never collected.
    void failed(const std::string& path, const std::exception_ptr& why);
    /// `moved` bytes more of the file at `path`, which is now as far as `file` says. False when the caller asks
    /// for the end.
    bool report(unsigned job, const std::string& path, const progress& file, std::int64_t moved);

    /// The collected result, which is then no longer here.
    tree_result take() { return std::move(result_); }
    tree_result& result() { return result_; }

private:
    const tree_options& options_;
    std::mutex mutex_;
    tree_result result_;
    std::uint64_t moved_ = 0;
    std::uint64_t total_ = 0;
    std::size_t files_ = 0;
    std::size_t files_done_ = 0;
    std::chrono::steady_clock::time_point began_{};
};

} // namespace qrftp

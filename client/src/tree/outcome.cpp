#include "outcome.hpp"

#include <algorithm>
#include <limits>

namespace qrftp {

using std::chrono::steady_clock;

namespace {

/// Servers tell sizes that no sum of them has room for.
std::uint64_t add(std::uint64_t sum, std::uint64_t size)
{
    return sum + std::min(size, std::numeric_limits<std::uint64_t>::max() - sum);
}

} // namespace

void throw_unless_collected(const tree_options& options, const std::exception_ptr& why)
{
    if (!options.keep_going) {
        std::rethrow_exception(why);
    }
    try {
        std::rethrow_exception(why);
    } catch (const Cancelled&) {
        throw;
    } catch (...) { // NOLINT(bugprone-empty-catch): the caller collects it
    }
}

void tree_outcome::expect(const std::vector<tree_action>& copies)
{
    const std::lock_guard lock(mutex_);
    files_ = copies.size();
    for (const tree_action& copy : copies) {
        total_ = add(total_, copy.size);
    }
    began_ = steady_clock::now();
}

void tree_outcome::done(const tree_action& action)
{
    const std::lock_guard lock(mutex_);
    result_.done.push_back(action);
    if (action.what == tree_action::kind::copy) {
        result_.bytes = add(result_.bytes, action.size);
        ++files_done_;
    }
    if (options_.on_action) {
        options_.on_action(action);
    }
}

void tree_outcome::failed(const std::string& path, const std::exception_ptr& why)
{
    throw_unless_collected(options_, why);
    const std::lock_guard lock(mutex_);
    result_.failures.push_back({path, why});
}

bool tree_outcome::report(unsigned job, const std::string& path, const progress& file, std::int64_t moved)
{
    const std::lock_guard lock(mutex_);
    moved_ += static_cast<std::uint64_t>(moved);
    if (!options_.on_progress) {
        return true;
    }
    const double seconds = std::chrono::duration<double>(steady_clock::now() - began_).count();
    const double rate = seconds > 0 ? static_cast<double>(moved_) / seconds : 0;
    return options_.on_progress({job, path, file, {moved_, total_, rate}, files_done_, files_});
}

} // namespace qrftp

#pragma once

#include "settings.hpp"

#include <qrftp/client.hpp>

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace qrftp::cli {

/// Progress on standard error: a line for each file that is under way and, for more than one file, one for the
/// total, redrawn in place at most ten times a second and not before the work has run for half a second, as
/// wide as the terminal. It is erased when it goes, so that what is printed afterwards begins at the left.
///
/// As JSON, it is an object a line instead: a file, its bytes, their total and the rate, for each file at most
/// ten times a second and when it is done.
///
/// Calls come from one thread at a time.
class progress_display {
public:
    explicit progress_display(progress_style style);
    ~progress_display();
    progress_display(const progress_display&) = delete;
    progress_display& operator=(const progress_display&) = delete;

    /// A tree, or several files, on the way.
    void show(const tree_progress& now);
    /// A single file.
    void show(const std::string& name, const progress& now);
    /// Takes the lines off the terminal until the next `show`, so that something can be printed.
    void erase();

private:
    using clock = std::chrono::steady_clock;

    struct row {
        std::string name;
        progress amount;
    };

    bool is_due();
    std::vector<row> rows(const row* total) const;
    void draw(const std::vector<row>& all);

    void print(const std::string& name, const progress& now, bool is_done);

    progress_style style_;
    clock::time_point start_{};
    clock::time_point drawn_at_{};
    std::size_t drawn_ = 0;         ///< lines on the terminal
    std::map<unsigned, row> files_; ///< by job
    std::size_t files_done_ = 0;
    std::map<std::string, clock::time_point> printed_at_; ///< by file
};

} // namespace qrftp::cli

#pragma once

#include "batch.hpp"
#include "progress_display.hpp"
#include "settings.hpp"

#include <qrftp/tree.hpp>

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

namespace qrftp::cli {

/// What is copied to what; in a tree, its folders.
struct copy_ends {
    std::string source{};
    std::string target{};
};

/// What one get, put or sync shows: its progress, what it does, what it passed over, and what failed.
class transfer_report {
public:
    /// Where `alone`, the first failure is thrown as it is. Where `prints`, what is done is printed.
    transfer_report(const settings& options, bool alone, bool prints);

    /// What the folder that a tree goes to is called.
    void set_target(std::string target) { target_ = std::move(target); }

    /// Carries out a part of the transfer and reports its failure; see `batch::attempt`.
    void attempt(const std::function<void()>& act);
    /// The same for a whole tree; where it stops at one entry that is not `source`, the option
    /// that does not is named.
    void attempt_tree(const tree_options& options, const std::string& source,
                      const std::function<tree_result()>& act);

    /// `options` with the callbacks that show progress and actions.
    template <class Options>
    Options watch(Options options)
    {
        options.dry_run = options_.dry_run;
        options.on_action = [this](const tree_action& action) { print_action(action); };
        options.on_progress = [this](const tree_progress& now) {
            display_.show(now);
            return true;
        };
        return options;
    }
    transfer_options watch(const std::string& name, transfer_options options);

    /// Whether the sizes of single files are printed.
    [[nodiscard]] bool prints_sizes() const { return options_.dry_run || (prints_ && options_.json); }
    [[nodiscard]] bool is_dry_run() const { return options_.dry_run; }
    /// As JSON, with `ends` where they are known.
    void print_action(const tree_action& action, const copy_ends& ends = {});

    /// Reports what a tree's transfer collected instead of throwing it, and what it passed over.
    void add(const tree_result& result);

    /// Ends the display. Throws `some_failed` if any part failed, or could not be read.
    void finish();

private:
    void print_left_out(const char* action, const std::string& what) const;

    const settings& options_;
    progress_display display_;
    batch all_;
    bool prints_;
    std::string target_ = ".";
    std::size_t unread_ = 0;
    std::size_t passed_over_ = 0;
};

} // namespace qrftp::cli

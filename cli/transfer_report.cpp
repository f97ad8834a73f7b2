#include "transfer_report.hpp"

#include "format.hpp"
#include "json.hpp"
#include "output.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <exception>

namespace qrftp::cli {

namespace {

std::string with_blanks(std::string_view name)
{
    std::string words(name);
    std::replace(words.begin(), words.end(), '_', ' ');
    return words;
}

/// Whether what is beside the entry that failed can be copied all the same.
bool concerns_one_entry(error_cause cause)
{
    switch (cause) {
    case error_cause::invalid_name:
    case error_cause::not_found:
    case error_cause::permission_denied:
    case error_cause::already_exists:
    case error_cause::unsafe_name:
    case error_cause::local_file:
    case error_cause::incomplete_listing:
        return true;
    default:
        return false;
    }
}

} // namespace

transfer_report::transfer_report(const settings& options, bool alone, bool prints)
    : options_(options), display_(options.progress), all_(alone), prints_(prints)
{
}

void transfer_report::attempt(const std::function<void()>& act)
{
    all_.attempt([&] {
        try {
            act();
        } catch (...) {
            display_.erase(); // What is reported now begins at the left.
            throw;
        }
    });
}

void transfer_report::attempt_tree(const tree_options& options, const std::string& source,
                                   const std::function<tree_result()>& act)
{
    attempt([&] {
        try {
            add(act());
        } catch (const error& failure) {
            if (!options.keep_going && concerns_one_entry(failure.cause()) && failure.path() != source) {
                display_.erase();
                note(options_, "Stopped at the first error; --keep-going copies the rest.");
            }
            throw;
        }
    });
}

transfer_options transfer_report::watch(const std::string& name, transfer_options options)
{
    options.on_progress = [this, name](const progress& now) {
        display_.show(name, now);
        return true;
    };
    return options;
}

void transfer_report::print_action(const tree_action& action, const copy_ends& ends)
{
    if (!prints_) {
        return;
    }
    display_.erase();
    if (options_.json) {
        json object = to_json(action);
        add_bytes(object, "source", ends.source);
        add_bytes(object, "target", ends.target);
        if (options_.dry_run) {
            object["dry_run"] = true;
        }
        print_json(object);
    } else {
        const bool has_reason = action.why != tree_action::reason::wanted;
        print_line(with_blanks(name_of(action.what)) + ' ' +
                   escape(action.path.empty() ? target_ : action.path) +
                   (has_reason ? " (" + with_blanks(name_of(action.why)) + ")" : ""));
    }
    flush_output();
}

void transfer_report::add(const tree_result& result)
{
    display_.erase();
    for (const tree_failure& one : result.failures) {
        try {
            std::rethrow_exception(one.error);
        } catch (const std::exception& error) {
            all_.add(error);
        }
    }
    for (const std::string& one : result.skipped) {
        print_left_out("skip_line", one);
    }
    for (const std::string& one : result.passed_over) {
        print_left_out("pass_over", one);
    }
    unread_ += result.skipped.size();
    passed_over_ += result.passed_over.size();
}

void transfer_report::print_left_out(const char* action, const std::string& what) const
{
    if (options_.json) {
        json object{{"action", action}};
        add_bytes(object, "path", what);
        print_json(object);
    } else if (options_.verbose > 0) {
        print_line(with_blanks(action) + ' ' + escape(what));
    }
}

void transfer_report::finish()
{
    display_.erase();
    flush_output();
    const char* const hint = options_.verbose > 0 || options_.json ? "" : " (-v shows them)";
    if (passed_over_ > 0) {
        note(options_, fmt::format("Not copied: {} or special file{}{}.", counted(passed_over_, "link"),
                                   passed_over_ == 1 ? "" : "s", hint));
    }
    if (unread_ > 0) {
        note(options_, fmt::format("Not copied: {} of listings that could not be read or whose names cannot be "
                                   "used{}.",
                                   counted(unread_, "line"), hint));
        all_.add_reported();
    }
    all_.finish();
}

} // namespace qrftp::cli

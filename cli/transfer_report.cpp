#include "transfer_report.hpp"

#include "format.hpp"
#include "json.hpp"
#include "output.hpp"

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

transfer_options transfer_report::watch(const std::string& name, transfer_options options)
{
    options.on_progress = [this, name](const progress& now) {
        display_.show(name, now);
        return true;
    };
    return options;
}

void transfer_report::print_action(const tree_action& action)
{
    if (!prints_) {
        return;
    }
    display_.erase();
    if (options_.json) {
        json object = to_json(action);
        if (options_.dry_run) {
            object["dry_run"] = true;
        }
        print_json(object);
    } else {
        const bool has_reason = action.why != tree_action::reason::wanted;
        print_line(with_blanks(name_of(action.what)) + ' ' + escape(action.path.empty() ? "." : action.path) +
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
        print_skipped(one);
    }
}

void transfer_report::print_skipped(const std::string& what)
{
    ++skipped_;
    if (options_.json) {
        json object{{"action", "skip"}};
        add_bytes(object, "line", what);
        print_json(object);
    } else if (options_.verbose > 0) {
        print_line("skip " + escape(what));
    }
}

void transfer_report::finish()
{
    display_.erase();
    flush_output();
    if (skipped_ > 0) {
        note(options_, fmt::format("{} of the listings could not be read or used, and {} not copied{}.",
                                   counted(skipped_, "line"), skipped_ == 1 ? "was" : "were",
                                   options_.verbose > 0 || options_.json ? "" : " (-v shows them)"));
        all_.add_reported();
    }
    all_.finish();
}

} // namespace qrftp::cli

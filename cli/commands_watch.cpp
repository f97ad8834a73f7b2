#include "change.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "folder_watch.hpp"
#include "interrupt.hpp"
#include "output.hpp"
#include "remote_glob.hpp"
#include "transfer_report.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace qrftp::cli {

namespace {

using namespace std::chrono_literals;

/// Changes that follow each other faster belong together.
constexpr auto quiet = 200ms;
/// So many changes are sent over one connection rather than after logging in several times.
constexpr std::size_t few = 16;
/// Before what failed is tried again; it doubles.
constexpr auto first_pause = 10s;
constexpr std::chrono::seconds longest_pause = 1h;

using clock = std::chrono::steady_clock;

/// Whether a local file was gone before it could be sent: its folder has told of that.
bool has_vanished(const tree_failure& failure)
{
    try {
        std::rethrow_exception(failure.error);
    } catch (const LocalFileError& error) {
        return error.code() == std::errc::no_such_file_or_directory;
    } catch (...) {
        return false;
    }
}

class watcher {
public:
    watcher(session& remote, const sync_arguments& arguments, const settings& options)
        : remote_(remote), arguments_(arguments), options_(options)
    {
        begin();
    }

    /// Returns when it is interrupted.
    void run()
    {
        const auto compare = [this] { sync(remote_, arguments_, options_); };
        arguments_.options.keep_going ? attempt(compare) : compare();
        print_step({"watch", arguments_.local});
        while (wait_readable(watch_->descriptor(), time_to_retry())) {
            const folder_changes changes = gather();
            if (!changes.empty()) {
                attempt([&] { changes.has_lost_some ? start_anew() : send(changes); });
            }
            if (retry_at_ && clock::now() >= *retry_at_) {
                attempt([this] { start_anew(); });
            }
        }
    }

private:
    void begin()
    {
        watch_ =
            std::make_unique<folder_watch>(arguments_.local, [this](const std::string& path, entry_kind kind) {
                return leaves_out(arguments_.options, path, kind);
            });
    }

    /// What belongs together; without an end of it, what came in a few seconds.
    folder_changes gather()
    {
        const auto last = std::chrono::steady_clock::now() + 5s;
        folder_changes changes;
        while (watch_->read(changes) && std::chrono::steady_clock::now() < last &&
               wait_readable(watch_->descriptor(), quiet)) {
        }
        watch_->settle(changes);
        return changes;
    }

    /// Compares everything.
    void start_anew()
    {
        begin();
        sync(remote_, arguments_, options_);
        retry_at_.reset();
        pause_ = first_pause;
    }

    /// A failure is reported and does not end the watch: everything is compared anew after a while, or, where
    /// the connection was the reason, as soon as there is one.
    void attempt(const std::function<void()>& act)
    {
        try {
            act();
        } catch (const some_failed&) {
            retry_later(); // It has been reported.
        } catch (const error& failure) {
            if (ends_watch(failure)) {
                throw;
            }
            settle(failure);
        }
    }

    static bool ends_watch(const error& failure)
    {
        return interrupted() || status_of(failure) == unknown_server;
    }

    void settle(const error& failure)
    {
        report(failure);
        if (!is_away(failure)) {
            retry_later();
            return;
        }
        note(options_, "Trying to connect again.");
        reconnect(failure.cause());
    }

    /// Whether there is no connection, or no login at the moment.
    static bool is_away(const error& failure)
    {
        return status_of(failure) == no_connection || failure.cause() == error_cause::login_refused;
    }

    /// Refused logins are counted by some servers.
    void reconnect(error_cause last)
    {
        for (auto pause = 1s; wait_readable(-1, pause);
             pause = std::min(2 * pause, last == error_cause::login_refused ? longest_pause : 30s)) {
            try {
                start_anew();
                return;
            } catch (const some_failed&) {
                retry_later();
                return;
            } catch (const error& failure) {
                last = failure.cause();
                if (ends_watch(failure)) {
                    throw;
                }
                if (!is_away(failure)) {
                    settle(failure);
                    return;
                }
            }
        }
    }

    void retry_later()
    {
        retry_at_ = clock::now() + pause_;
        pause_ = std::min(2 * pause_, longest_pause);
    }

    [[nodiscard]] std::chrono::milliseconds time_to_retry() const
    {
        return !retry_at_
                   ? forever
                   : std::max(std::chrono::ceil<std::chrono::milliseconds>(*retry_at_ - clock::now()), 0ms);
    }

    void send(const folder_changes& changes)
    {
        sync_options wanted = arguments_.options;
        wanted.keep_going = true;
        wanted.changed.assign(changes.written.begin(), changes.written.end());
        for (const folder_changes::move& each : changes.moves) {
            if (!rename(each) && !each.is_folder) {
                wanted.changed.push_back(each.to);
            }
        }
        wanted.only.assign(changes.touched.begin(), changes.touched.end());
        wanted.only.insert(wanted.only.end(), wanted.changed.begin(), wanted.changed.end());
        wanted.jobs = wanted.jobs == 0 && wanted.only.size() <= few ? 1 : wanted.jobs;
        transfer_report report(options_, false, !options_.quiet || options_.json);
        tree_result result = synchronise(remote_, arguments_.local, or_here(arguments_.remote), direction::send,
                                         report.watch(std::move(wanted)));
        std::erase_if(result.failures, has_vanished);
        report.add(result);
        report.finish();
    }

    /// False where the server has nothing to rename, or does not rename it, or something is there that may be
    /// newer: it is then sent like what is new.
    bool rename(const folder_changes::move& what)
    {
        const std::string from = join(arguments_.remote, what.from);
        const std::string to = join(arguments_.remote, what.to);
        try {
            if (arguments_.options.newer != newer_targets::replace && remote_.exists(to)) {
                return false;
            }
            try {
                remote_.rename(from, to, true);
            } catch (const NotFound&) {
                if (!remote_.exists(from)) {
                    return false;
                }
                remote_.make_folder(to.substr(0, to.rfind('/')), true);
                remote_.rename(from, to, true);
            }
        } catch (const error& failure) {
            if (interrupted() || status_of(failure) == no_connection) {
                throw;
            }
            return false;
        }
        print_step({"rename", what.from, what.to});
        return true;
    }

    void print_step(const change& what)
    {
        if (!options_.quiet || options_.json) {
            print_change(what, options_);
            flush_output();
        }
    }

    session& remote_;
    const sync_arguments& arguments_;
    const settings& options_;
    std::unique_ptr<folder_watch> watch_;
    std::optional<clock::time_point> retry_at_; ///< something has not been sent or removed
    std::chrono::seconds pause_ = first_pause;
};

} // namespace

void watch(session& remote, const sync_arguments& arguments, const settings& options)
{
    watcher(remote, arguments, options).run();
    throw Cancelled(arguments.local);
}

} // namespace qrftp::cli

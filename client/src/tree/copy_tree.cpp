#include "../remote_path.hpp"
#include "../replace.hpp"
#include "../session_access.hpp"
#include "../transfer/connection_pool.hpp"
#include "../transfer/server_copy.hpp"
#include "make_parents.hpp"
#include "outcome.hpp"
#include "plan.hpp"

#include <qrftp/copy.hpp>

#include <algorithm>
#include <atomic>
#include <utility>

namespace qrftp {

namespace {

constexpr unsigned usual_jobs = 4;

/// Of one tree that is copied from one server to another.
class tree_copier {
public:
    tree_copier(session& from, std::string source, session& to, std::string target, const tree_options& options)
        : from_(from), source_(std::move(source)), to_(to), target_(std::move(target)), options_(options),
          is_same_(is_same_login(from, to)), outcome_(options),
          limiter_(make_rate_limiter(options.transfer.rate_limit, session_access::options(to).total_timeout))
    {
    }

    tree_result run()
    {
        if (is_same_ && remote_path::is_or_contains(source_, target_)) {
            throw InvalidOption(target_, "a folder cannot be copied into itself");
        }
        scan_ = scan_remote(session_access::server(from_), source_, options_, tree_role::source);
        const tree_plan plan = make_plan(scan_, {.exists = false}, {.copy_links = options_.copy_links}, {});
        for (const tree_failure& each : scan_.failures) {
            outcome_.failed(each.path, each.error);
        }
        outcome_.result().skipped = std::move(scan_.skipped);
        outcome_.result().passed_over = std::move(scan_.passed_over);
        take_steps(plan.actions);
        return outcome_.take();
    }

private:
    void take_steps(const std::vector<tree_action>& actions)
    {
        for (const tree_action& action : actions) {
            if (options_.dry_run) {
                outcome_.done(action);
            } else if (action.what == tree_action::kind::copy) {
                copies_.push_back(action);
            } else if (action.what == tree_action::kind::make_folder) {
                outcome_.settle(action,
                                [&] { make_with_parents(session_access::server(to_), target(action.path)); });
            }
        }
        copy_files();
        for (const tree_action& action : actions) {
            if (!options_.dry_run && action.what == tree_action::kind::make_link) {
                outcome_.settle(action, [&] {
                    replace_link(session_access::server(to_), scan_.nodes.at(action.path).link_target,
                                 target(action.path), options_.transfer.replace);
                });
            }
        }
    }

    void copy_files()
    {
        outcome_.expect(copies_);
        if (copies_.empty()) {
            return;
        }
        const auto most = static_cast<unsigned>(std::min<std::size_t>(copies_.size(), usual_jobs));
        const unsigned jobs = options_.jobs == 0 ? most : options_.jobs;
        connection_pool pool(to_, jobs - 1);
        protocol& reading = session_access::server(from_);
        pool.run(session_access::server(to_), [&](protocol& writing, unsigned job) {
            server_copier copier(from_, job == 0 && &reading != &writing ? &reading : nullptr, writing,
                                 is_same_);
            for (std::size_t next = next_++; next < copies_.size(); next = next_++) {
                outcome_.settle(copies_[next],
                                [&] { copy_file(copier, copies_[next], job, pool.stop_token()); });
            }
        });
    }

    void copy_file(server_copier& copier, const tree_action& action, unsigned job, std::stop_token stop)
    {
        transfer_options options = options_.transfer;
        options.on_progress = {};
        std::uint64_t reported = 0;
        if (options_.on_progress) {
            options.on_progress = [&](const progress& now) {
                const auto moved = static_cast<std::int64_t>(now.bytes - std::exchange(reported, now.bytes));
                return outcome_.report(job, action.path, now, moved);
            };
        }
        const tree_node& node = scan_.nodes.at(action.path);
        remote_source source{remote_path::join(source_, action.path), {.size = node.size, .mode = node.mode}};
        if (node.modified && node.modified->is_exact()) {
            source.facts.modified = node.modified->time;
        }
        meter progress_meter(action.path, options, limiter_, std::move(stop));
        copier.copy(source, target(action.path), options, progress_meter);
    }

    [[nodiscard]] std::string target(const std::string& path) const
    {
        return path.empty() ? target_ : remote_path::join(target_, path);
    }

    session& from_;
    std::string source_;
    session& to_;
    std::string target_;
    const tree_options& options_;
    bool is_same_;
    tree_outcome outcome_;
    std::shared_ptr<rate_limiter> limiter_;
    tree_scan scan_;
    std::vector<tree_action> copies_;
    std::atomic<std::size_t> next_{0};
};

} // namespace

tree_result copy_tree(session& from, const std::string& source, session& to, const std::string& target,
                      const tree_options& options)
{
    return tree_copier(from, from.absolute(source), to, to.absolute(target), options).run();
}

} // namespace qrftp

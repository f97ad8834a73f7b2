#include "commands.hpp"
#include "output.hpp"
#include "planned_targets.hpp"
#include "remote_glob.hpp"
#include "transfer_report.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

namespace qrftp::cli {

namespace {

struct copy_step {
    std::string source;
    std::string target;
};

/// `into`: `target` is a folder that takes the copies in.
std::vector<copy_step> plan_copies(session& from, const std::vector<std::string>& sources,
                                   const std::string& target, bool into)
{
    std::vector<copy_step> plan;
    planned_targets targets;
    for (const std::string& source : sources) {
        const std::string path = or_here(source);
        plan.push_back({path, into ? join(target, last_segment(from.absolute(path))) : target});
        targets.add(plan.back().target, path);
    }
    return plan;
}

/// One file or folder.
void copy_one(session& from, const std::string& source, session& to, const std::string& target,
              const transfer_arguments& arguments, transfer_report& report)
{
    if (from.is_folder(source)) {
        if (!arguments.recursive) {
            throw IsFolder(source, {.message = "-r copies folders"});
        }
        const tree_options options = report.watch(arguments.tree);
        report.add(copy_tree(from, source, to, target, options));
        return;
    }
    const transfer_options options = report.watch(last_segment(source), arguments.tree.transfer);
    if (!report.is_dry_run()) {
        copy(from, source, to, target, options);
    }
    tree_action action{.path = source};
    if (report.prints_sizes()) {
        action.size = from.file_size(source).value_or(0);
    }
    report.print_action(action);
}

} // namespace

void cp(session& from, session& to, const transfer_arguments& arguments, const settings& options)
{
    std::vector<std::string> sources;
    for (const std::string& pattern : arguments.sources) {
        const std::vector<std::string> found = expand(from, pattern);
        sources.insert(sources.end(), found.begin(), found.end());
    }
    const std::string& target = arguments.target;
    const bool into = target.empty() || target.ends_with('/') || to.is_folder(target);
    if (sources.size() > 1 && !into) {
        throw usage_error(
            fmt::format("Several files cannot all become \"{}\": name a remote folder.", escape(target)));
    }
    const std::vector<copy_step> plan = plan_copies(from, sources, target, into);
    transfer_report report(options, sources.size() == 1,
                           options.json || options.verbose > 0 || options.dry_run);
    for (const copy_step& step : plan) {
        report.attempt([&] { copy_one(from, step.source, to, step.target, arguments, report); });
    }
    report.finish();
}

} // namespace qrftp::cli

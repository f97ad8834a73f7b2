#include "options.hpp"

#include "keywords.hpp"
#include "text.hpp"
#include "tree.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace qrftp::python {

namespace {

using optional_text = std::optional<std::string>;
using optional_texts = std::optional<std::vector<std::string>>;

void take_login(const keywords& given, session_options& options)
{
    given.take("user", options.user);
    given.take("password", options.password);
    given.take("key", options.private_keys);
    given.take("pass_phrase", options.pass_phrase);
    given.take("certificates", options.certificates);
    given.take("agent", options.use_agent);
    given.take("identities_only", options.identities_only);
    given.take("ssh_config", options.ssh_config.only);
    if (const auto ask = given.function("ask_password")) {
        options.ask_password = [ask = *ask](unsigned attempt) {
            return ask(optional_text(), [&](const py::object& f) { return f(attempt).cast<optional_text>(); });
        };
    }
    if (const auto ask = given.function("ask_pass_phrase")) {
        options.ask_pass_phrase = [ask = *ask](const std::filesystem::path& key) {
            return ask(optional_text(), [&](const py::object& f) { return f(key).cast<optional_text>(); });
        };
    }
    if (const auto ask = given.function("answer_prompts")) {
        options.answer_prompts = [ask = *ask](const login_prompts& asked) {
            return ask(optional_texts(), [&](const py::object& f) {
                py::list prompts;
                for (const login_prompt& each : asked.prompts) {
                    prompts.append(py::make_tuple(to_text(each.text), each.echo));
                }
                return f(to_text(asked.name), to_text(asked.instruction), prompts).cast<optional_texts>();
            });
        };
    }
}

void take_trust(const keywords& given, session_options& options)
{
    given.take(
        "tls", options.tls,
        {{"none", tls_mode::none}, {"opportunistic", tls_mode::opportunistic}, {"strict", tls_mode::strict}});
    given.take("certificate_authorities", options.certificate_authorities);
    given.take("pins", options.pins);
    given.take("tls_trust", options.trust,
               {{"strict", certificate_trust::strict}, {"accept-new", certificate_trust::accept_new}});
    given.take("known_tls", options.known_tls_file);
    given.take("client_certificate", options.client_certificate);
    given.take("client_key", options.client_key);
    if (const auto confirm = given.function("confirm_certificate")) {
        options.confirm_certificate = [confirm = *confirm](const server_certificate& shown) {
            return confirm(false, [&](const py::object& f) {
                return f(to_text(shown.host), shown.pin, shown.problem).cast<bool>();
            });
        };
    }
    given.take("host_keys", options.host_keys,
               {{"strict", host_key_check::strict},
                {"accept-new", host_key_check::accept_new},
                {"off", host_key_check::off}});
    given.take("known_hosts", options.known_hosts_file);
    given.take("global_known_hosts", options.global_known_hosts_file);
    if (const auto confirm = given.function("confirm_host_key")) {
        options.confirm_host_key = [confirm = *confirm](const host_key& key) {
            return confirm(false, [&](const py::object& f) {
                return f(to_text(key.host), to_text(key.type), key.fingerprint()).cast<bool>();
            });
        };
    }
}

/// True for that of the environment, or a URL.
void take_proxy(const keywords& given, session_options& options)
{
    std::variant<bool, std::string> proxy = false;
    given.take("proxy", proxy);
    if (const auto* const url = std::get_if<std::string>(&proxy)) {
        options.proxy = *url;
    } else {
        options.use_proxy = std::get<bool>(proxy);
    }
}

void take_transfer(const keywords& given, transfer_options& options)
{
    given.take("in_place", options.in_place);
    given.take("resume", options.resume);
    given.take("replace", options.replace);
    given.take("keep_time", options.keep_time);
    given.take("keep_mode", options.keep_mode);
    given.take("sync", options.sync);
    given.take("offset", options.offset);
    given.take("length", options.length);
    given.take("rate_limit", options.rate_limit);
    given.take("verify", options.verify);
    given.take("segments", options.segments);
    given.take("retries", options.retries);
    given.take("retry_delay", options.retry_delay);
    given.take("follow_target", options.follow_target);
}

} // namespace

session_options to_session_options(const py::dict& given, const std::shared_ptr<callback_failure>& failure)
{
    const keywords words(given, failure);
    session_options options;
    take_login(words, options);
    take_trust(words, options);
    words.take("active", options.active);
    take_proxy(words, options);
    words.take("connect_timeout", options.connect_timeout);
    words.take("stall_timeout", options.stall_timeout);
    words.take("total_timeout", options.total_timeout);
    if (const auto warn = words.function("on_warning")) {
        options.on_warning = [warn = *warn](const std::string& sentence) {
            warn(0, [&](const py::object& f) {
                f(to_text(sentence));
                return 0;
            });
        };
    }
    return options;
}

transfer_options to_transfer_options(const py::dict& given, const std::shared_ptr<callback_failure>& failure)
{
    const keywords words(given, failure);
    transfer_options options;
    take_transfer(words, options);
    words.take("jobs", options.jobs);
    if (const auto report = words.function("progress")) {
        options.on_progress = [report = *report](const progress& now) {
            return report(false,
                          [&](const py::object& f) { return goes_on(f(now.bytes, now.total, now.rate)); });
        };
    }
    return options;
}

sync_options to_sync_options(const py::dict& given, const std::shared_ptr<callback_failure>& failure)
{
    const keywords words(given, failure);
    sync_options options;
    take_transfer(words, options.transfer);
    words.take("include", options.include);
    words.take("exclude", options.exclude);
    words.take("follow_links", options.follow_links);
    words.take("copy_links", options.copy_links);
    words.take("max_depth", options.max_depth);
    words.take("jobs", options.jobs);
    words.take("keep_going", options.keep_going);
    words.take("dry_run", options.dry_run);
    words.take("remove_extra", options.remove_extra);
    words.take("force", options.force);
    words.take("max_removals", options.max_removals);
    words.take("comparison", options.comparison,
               {{"size_and_time", sync_comparison::size_and_time},
                {"size", sync_comparison::size},
                {"checksum", sync_comparison::checksum}});
    words.take("newer", options.newer,
               {{"replace", newer_targets::replace},
                {"skip", newer_targets::skip},
                {"refuse", newer_targets::refuse}});
    if (const auto report = words.function("progress")) {
        options.on_progress = [report = *report](const tree_progress& now) {
            return report(false, [&](const py::object& f) { return goes_on(f(*to_python(now))); });
        };
    }
    if (const auto report = words.function("on_action")) {
        options.on_action = [report = *report](const tree_action& step) {
            if (!report(false, [&](const py::object& f) {
                    f(*to_python(step));
                    return true;
                })) {
                throw Cancelled(step.path);
            }
        };
    }
    return options;
}

} // namespace qrftp::python

#include "login_callbacks.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

namespace qrftp {

namespace {

using std::filesystem::path;
using secret = std::optional<std::string>;

std::function<secret(unsigned)> remembering(std::function<secret(unsigned)> ask)
{
    return [ask = std::move(ask), known = std::make_shared<secret>()](unsigned attempt) {
        return attempt > 0 || !*known ? *known = ask(attempt) : *known;
    };
}

/// Each connection has a copy of its own: what that asks for once more was wrong.
std::function<secret(const path&)> remembering(std::function<secret(const path&)> ask)
{
    return [ask = std::move(ask), known = std::make_shared<std::map<path, secret>>(),
            asked = std::set<path>()](const path& key) mutable {
        secret& phrase = (*known)[key];
        return !asked.insert(key).second || !phrase ? phrase = ask(key) : phrase;
    };
}

template <class Result, class... Arguments>
void serialise(std::function<Result(Arguments...)>& callback, const std::shared_ptr<std::mutex>& one_at_a_time)
{
    if (callback) {
        callback = [call = std::move(callback), one_at_a_time](Arguments... arguments) {
            const std::lock_guard lock(*one_at_a_time);
            return call(std::forward<Arguments>(arguments)...);
        };
    }
}

} // namespace

void share_callbacks(session_options& options)
{
    const auto one_at_a_time = std::make_shared<std::mutex>();
    const auto share = [&](auto&... callbacks) { (serialise(callbacks, one_at_a_time), ...); };
    if (options.ask_password) {
        options.ask_password = remembering(std::move(options.ask_password));
    }
    if (options.ask_pass_phrase) {
        options.ask_pass_phrase = remembering(std::move(options.ask_pass_phrase));
    }
    share(options.ask_password, options.ask_pass_phrase, options.answer_prompts, options.confirm_certificate,
          options.confirm_host_key, options.on_warning);
}

} // namespace qrftp

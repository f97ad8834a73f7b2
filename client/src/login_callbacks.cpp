#include "login_callbacks.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

namespace qrftp {

namespace {

namespace fs = std::filesystem;
using secret = std::optional<std::string>;

std::function<secret(unsigned)> remember_password(std::function<secret(unsigned)> ask)
{
    return [ask = std::move(ask), known = std::make_shared<secret>()](unsigned attempt) {
        if (attempt > 0 || !*known) {
            *known = ask(attempt);
        }
        return *known;
    };
}

std::function<secret(const fs::path&)> remember_pass_phrases(std::function<secret(const fs::path&)> ask)
{
    using known_phrases = std::map<fs::path, secret>;
    // Each connection has a copy of its own: what that asks for once more was wrong.
    return [ask = std::move(ask), known = std::make_shared<known_phrases>(),
            asked = std::set<fs::path>()](const fs::path& key) mutable {
        secret& phrase = (*known)[key];
        if (!asked.insert(key).second || !phrase) {
            phrase = ask(key);
        }
        return phrase;
    };
}

/// Recursive, since a callback may log in once more (`session::clone`).
using lock_ptr = std::shared_ptr<std::recursive_mutex>;

template <class Result, class... Arguments>
void serialise(std::function<Result(Arguments...)>& callback, const lock_ptr& one_at_a_time)
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
    if (options.ask_password) {
        options.ask_password = remember_password(std::move(options.ask_password));
    }
    if (options.ask_pass_phrase) {
        options.ask_pass_phrase = remember_pass_phrases(std::move(options.ask_pass_phrase));
    }
    const auto one_at_a_time = std::make_shared<std::recursive_mutex>();
    serialise(options.ask_password, one_at_a_time);
    serialise(options.ask_pass_phrase, one_at_a_time);
    serialise(options.answer_prompts, one_at_a_time);
    serialise(options.confirm_certificate, one_at_a_time);
    serialise(options.confirm_host_key, one_at_a_time);
    serialise(options.on_warning, one_at_a_time);
}

} // namespace qrftp

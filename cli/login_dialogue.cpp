#include "login_dialogue.hpp"

#include "password_command.hpp"
#include "terminal.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <utility>

namespace qrftp::cli {

namespace {

constexpr unsigned most_attempts = 3;

} // namespace

login_dialogue::login_dialogue(std::string subject, std::optional<std::string> password)
    : subject_(std::move(subject)), password_(std::move(password))
{
}

void login_dialogue::use_command(const std::string& command)
{
    const std::scoped_lock lock(guard_);
    command_ = command;
}

std::optional<std::string> login_dialogue::password(unsigned attempt)
{
    const std::scoped_lock lock(guard_);
    run_command();
    if (attempt == 0 && password_) {
        return password_;
    }
    if (attempt >= most_attempts) {
        return std::nullopt;
    }
    password_ = ask_hidden(fmt::format("Password for {}{}: ", escape(subject_),
                                       attempt == 0 ? "" : " (the last one was refused)"));
    return password_;
}

std::optional<std::string> login_dialogue::pass_phrase(const std::filesystem::path& key, bool was_wrong)
{
    const std::scoped_lock lock(guard_);
    if (const auto known = pass_phrases_.find(key); known != pass_phrases_.end() && !was_wrong) {
        return known->second;
    }
    std::optional<std::string> phrase = ask_hidden(fmt::format("Pass phrase for {}: ", escape(key.string())));
    if (phrase) {
        pass_phrases_[key] = *phrase;
    }
    return phrase;
}

std::optional<std::vector<std::string>> login_dialogue::answers(const login_prompts& prompts)
{
    const std::scoped_lock lock(guard_);
    const bool wants_password = prompts.prompts.size() == 1 && !prompts.prompts.front().echo;
    if (wants_password) {
        run_command();
    }
    if (wants_password && password_ && !std::exchange(has_used_password_, true)) {
        return std::vector{*password_};
    }
    for (const std::string& text : {prompts.name, prompts.instruction}) {
        if (!text.empty()) {
            show_at_terminal(asked_by_server(text) + '\n');
        }
    }
    std::vector<std::string> given;
    for (const login_prompt& prompt : prompts.prompts) {
        const std::string question = asked_by_server(prompt.text);
        std::optional<std::string> answer = prompt.echo ? ask(question, true) : ask_hidden(question);
        if (!answer) {
            lacks_terminal_ = !password_ && !has_terminal();
            return std::nullopt;
        }
        given.push_back(*std::move(answer));
    }
    if (wants_password) {
        password_ = given.front();
        has_used_password_ = false; // A further session of this run begins with it.
    }
    return given;
}

bool login_dialogue::accepts(const host_key& key)
{
    const std::scoped_lock lock(guard_);
    return ask_yes_or_no(fmt::format("The host {} is not known yet. Its key is\n  {} {}\n"
                                     "Accept and remember it? [y/N] ",
                                     escape(key.host), escape(key.type), key.fingerprint()))
        .value_or(true);
}

bool login_dialogue::accepts(const server_certificate& shown)
{
    const std::scoped_lock lock(guard_);
    const auto [known, is_new] = certificates_.try_emplace(shown.pin, true);
    if (is_new) {
        known->second =
            ask_yes_or_no(fmt::format("No authority vouches for the certificate of {} ({}). Its key is\n"
                                      "  {}\nAccept and remember it? [y/N] ",
                                      escape(shown.host), shown.problem, shown.pin))
                .value_or(true);
    }
    return known->second;
}

bool login_dialogue::lacks_terminal() const
{
    const std::scoped_lock lock(guard_);
    return lacks_terminal_;
}

std::string login_dialogue::asked_by_server(const std::string& text) const
{
    return fmt::format("({}) {}", escape(subject_), escape(text));
}

void login_dialogue::run_command()
{
    if (!command_.empty()) {
        password_ = run_password_command(std::exchange(command_, {}));
        mask_secret(*password_);
    }
}

std::optional<std::string> login_dialogue::ask_hidden(const std::string& question)
{
    std::optional<std::string> answer = ask_secret(question);
    if (answer) {
        mask_secret(*answer);
    } else {
        lacks_terminal_ = !password_ && !has_terminal();
    }
    return answer;
}

} // namespace qrftp::cli

#include "authentication.hpp"

#include "../login_callbacks.hpp"
#include "../trace.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qrftp::sftp {

namespace {

constexpr unsigned most_steps = 16; // of a login that takes several methods

std::string names_of(unsigned methods)
{
    std::string names;
    for (const auto& [method, name] :
         {std::pair(SSH_AUTH_METHOD_PUBLICKEY, "publickey"), std::pair(SSH_AUTH_METHOD_PASSWORD, "password"),
          std::pair(SSH_AUTH_METHOD_INTERACTIVE, "keyboard-interactive"),
          std::pair(SSH_AUTH_METHOD_HOSTBASED, "hostbased"),
          std::pair(SSH_AUTH_METHOD_GSSAPI_MIC, "gssapi-with-mic")}) {
        if ((methods & method) != 0) {
            names.append(names.empty() ? "" : ", ").append(name);
        }
    }
    return names;
}

} // namespace

authentication::authentication(const ssh_settings& settings, const session_options& options)
    : settings_(settings), options_(options)
{
    identities_ = list_identities(settings, options.use_agent ? open_agent() : std::vector<std::string>());
    mask_secret(settings.password.value_or(""));
    mask_secret(options.pass_phrase.value_or(""));
}

/// Returns the agent's keys. Goes on without an agent that does not answer.
std::vector<std::string> authentication::open_agent()
{
    auto real = agent::open(options_.stop, settings_.connect_timeout);
    auto keys = real ? real->keys() : std::vector<std::string>();
    if (options_.stop.stop_requested()) {
        throw Cancelled(settings_.server);
    }
    if (real && real->is_silent()) {
        warn_of_silent_agent();
    } else if (real) {
        agent_ = std::make_unique<agent_bridge>(std::move(*real));
    }
    return keys;
}

void authentication::warn_of_silent_agent() const
{
    if (options_.on_warning) {
        options_.on_warning("The SSH agent (SSH_AUTH_SOCK) does not answer; going on without its keys.");
    }
}

bool authentication::log_in(ssh_connection& connection)
{
    connection_ = &connection;
    used_methods_ = 0;
    refused_ = false;
    password_answered_ = false;
    first_ = next_;
    if (agent_) {
        ssh_set_agent_socket(connection.get(), agent_->connect());
    }
    // With the answer comes which RSA signatures the server takes (RFC 8308); libssh must know before the first
    // key.
    connection.finish([&] { return ssh_service_request(connection.get(), "ssh-userauth"); }, SSH_AGAIN);
    // A server that takes one of the keys is not asked what it takes, which saves a round trip.
    result last = next_ < identities_.size() ? try_keys() : try_none();
    for (unsigned step = 0; last == result::partly || last == result::refused; ++step) {
        if (step == most_steps) {
            refuse("it asks for more and more");
        }
        used_methods_ = last == result::partly ? 0U : used_methods_;
        last = try_next_method();
    }
    if (last == result::closed && !can_go_on_with_another_connection()) {
        if (!refused_) {
            throw ConnectionLost(settings_.server, {0, closing_words_});
        }
        refuse(closing_words_);
    }
    return last == result::accepted;
}

/// A server closes the connection after some number of refused keys, which may be in place of its answer to the
/// right password; after as many passwords it means it.
bool authentication::can_go_on_with_another_connection() const
{
    const bool in_keys = next_ > first_ || used_methods_ == 0 || used_methods_ == SSH_AUTH_METHOD_PUBLICKEY;
    const bool has_more =
        next_ < identities_.size() || settings_.password || can_ask_password() || options_.answer_prompts;
    return refused_ && in_keys && has_more;
}

template <class Call>
int authentication::request(Call call)
{
    return connection_->finish(call, SSH_AUTH_AGAIN);
}

authentication::result authentication::judge(int libssh_result)
{
    connection_->wait()->throw_if_stopped(); // The agent's failure may be due to this.
    const bool is_password_unjudged = std::exchange(is_password_unjudged_, false);
    switch (libssh_result) {
    case SSH_AUTH_SUCCESS:
        return result::accepted;
    case SSH_AUTH_PARTIAL:
        return result::partly;
    case SSH_AUTH_AGAIN:
    case SSH_AUTH_ERROR:
        if (!connection_->is_connected()) {
            closing_words_ = connection_->last_words();
            asked_ -= is_password_unjudged ? 1 : 0; // It is asked for again, as if for the first time.
            return result::closed;
        }
        reason_ = connection_->last_words();
        return result::refused; // by libssh or the agent: the server was not asked
    default:
        refused_ = true;
        return result::refused;
    }
}

authentication::result authentication::note(const std::string& tried, result outcome, const std::string& which)
{
    static constexpr std::array words{"accepted", "accepted, but not enough", "refused",
                                      "the connection ended"};
    const std::string reason = std::exchange(reason_, {});
    const std::string line = fmt::format(
        "{}: {}", tried, reason.empty() ? words.at(static_cast<std::size_t>(outcome)) : reason.c_str());
    if (is_traced(trace_level::dialogue)) {
        trace_line(fmt::format("< LOGIN {}{}", line, which));
    }
    if (outcome == result::refused && refusals_.find(line) == std::string::npos) {
        refusals_ += line + "; ";
    }
    return outcome;
}

authentication::result authentication::try_none()
{
    const bool refused_before = refused_;
    const result outcome = judge(request([&] { return ssh_userauth_none(connection_->get(), nullptr); }));
    refused_ = refused_before; // No server is expected to take this.
    return outcome;
}

authentication::result authentication::try_next_method()
{
    const auto offered = static_cast<unsigned>(ssh_userauth_list(connection_->get(), nullptr));
    if (offered == 0) {
        return try_none();
    }
    const auto is_next = [&](unsigned method) { return (offered & ~used_methods_ & method) != 0; };
    if (is_next(SSH_AUTH_METHOD_PUBLICKEY) && next_ < identities_.size()) {
        used_methods_ |= SSH_AUTH_METHOD_PUBLICKEY;
        return try_keys();
    }
    if (is_next(SSH_AUTH_METHOD_INTERACTIVE)) {
        used_methods_ |= SSH_AUTH_METHOD_INTERACTIVE;
        return try_interactive();
    }
    if (is_next(SSH_AUTH_METHOD_PASSWORD)) {
        used_methods_ |= SSH_AUTH_METHOD_PASSWORD;
        return try_passwords();
    }
    refuse(fmt::format("it accepts {}{}", names_of(offered), next_ == 0 ? "; no key was tried" : ""));
}

void authentication::refuse(const std::string& why) const
{
    throw LoginRefused(settings_.server, {0, refusals_ + why});
}

authentication::result authentication::try_keys()
{
    while (next_ < identities_.size()) {
        const auto offered = static_cast<unsigned>(ssh_userauth_list(connection_->get(), nullptr));
        if (offered != 0 && (offered & SSH_AUTH_METHOD_PUBLICKEY) == 0) {
            break;
        }
        const identity& one = identities_[next_++];
        const std::string print = host_key{{}, {}, one.key}.fingerprint();
        const result outcome = one.in_agent
                                   ? note("keys of the agent", try_agent_key(one), fmt::format(" ({})", print))
                                   : note("key " + one.file.string(), try_file_key(one));
        if (outcome == result::closed && refused_) {
            --next_; // Some servers close after the last refusal, some in its place.
        }
        if (outcome != result::refused) {
            return outcome;
        }
    }
    return result::refused;
}

authentication::result authentication::try_agent_key(const identity& one)
{
    if (agent_->is_silent()) {
        reason_ = "the agent does not answer";
        return result::refused;
    }
    agent_->offer(one.certificate.empty() ? one.key : one.certificate, one.key);
    const result outcome = judge(request([&] { return ssh_userauth_agent(connection_->get(), nullptr); }));
    reason_ = reason_.empty() ? "" : "the agent did not sign"; // libssh's words: out of memory
    if (agent_->is_silent()) {
        warn_of_silent_agent();
    }
    return outcome;
}

authentication::result authentication::try_file_key(const identity& one)
{
    const key_ptr certificate = one.certificate.empty() ? nullptr : import_certificate(one.certificate);
    if (!one.key.empty() && private_key_file(one.file).is_encrypted()) {
        // Nobody is asked for the pass phrase of a key that the server does not take.
        const key_ptr key = certificate ? nullptr : import_public(one.key);
        auto* const shown = certificate ? certificate.get() : key.get();
        const int got = request([&] { return ssh_userauth_try_publickey(connection_->get(), nullptr, shown); });
        if (got != SSH_AUTH_SUCCESS) {
            return judge(got);
        }
    }
    const key_ptr key = unlock(one);
    if (key == nullptr ||
        (certificate && ssh_pki_copy_cert_to_privkey(certificate.get(), key.get()) != SSH_OK)) {
        return result::refused;
    }
    return judge(request([&] { return ssh_userauth_publickey(connection_->get(), nullptr, key.get()); }));
}

key_ptr authentication::unlock(const identity& one)
{
    const private_key_file content(one.file);
    const auto fail = [&](const char* why) {
        reason_ = why;
        return one.is_explicit ? throw InvalidOption(one.file.string(), why) : key_ptr();
    };
    if (!content.is_encrypted()) {
        key_ptr key = content.load(nullptr);
        return key ? std::move(key) : fail("its private key cannot be read");
    }
    if (options_.pass_phrase) {
        if (key_ptr key = content.load(options_.pass_phrase->c_str())) {
            return key;
        }
    }
    for (unsigned asked = 0; options_.ask_pass_phrase && asked < most_questions; ++asked) {
        const auto pass_phrase = options_.ask_pass_phrase(one.file);
        if (!pass_phrase) {
            reason_ = options_.pass_phrase || asked > 0 ? wrong_pass_phrase : no_pass_phrase;
            return nullptr;
        }
        mask_secret(*pass_phrase);
        if (key_ptr key = content.load(pass_phrase->c_str())) {
            return key;
        }
    }
    return fail(options_.pass_phrase || options_.ask_pass_phrase ? wrong_pass_phrase : no_pass_phrase);
}

login_prompts authentication::prompts() const
{
    auto* const session = connection_->get();
    login_prompts asked;
    asked.name = text_of(ssh_userauth_kbdint_getname(session));
    asked.instruction = text_of(ssh_userauth_kbdint_getinstruction(session));
    const int count = ssh_userauth_kbdint_getnprompts(session);
    for (int i = 0; i < count; ++i) {
        char echo = 0;
        std::string text = text_of(ssh_userauth_kbdint_getprompt(session, static_cast<unsigned>(i), &echo));
        asked.prompts.push_back({std::move(text), echo != 0});
    }
    return asked;
}

bool authentication::can_ask_password() const
{
    return !settings_.password && options_.ask_password && asked_ < most_questions;
}

std::string authentication::ask_password()
{
    auto password = options_.ask_password(asked_++);
    is_password_unjudged_ = true;
    if (!password) {
        refuse(asked_ > 1 ? "no other password was given" : "no password was given");
    }
    mask_secret(*password);
    return *password;
}

std::optional<std::vector<std::string>> authentication::answers(const login_prompts& asked)
{
    if (asked.prompts.empty()) {
        return std::vector<std::string>();
    }
    const bool is_password = asked.prompts.size() == 1 && !asked.prompts.front().echo;
    if (is_password && settings_.password && !password_answered_) {
        password_answered_ = true;
        return std::vector{*settings_.password};
    }
    if (options_.answer_prompts) {
        auto given = options_.answer_prompts(asked);
        if (!given) {
            refuse("the server's questions were not answered");
        }
        given->resize(asked.prompts.size());
        return given;
    }
    if (is_password && can_ask_password()) {
        return std::vector{ask_password()};
    }
    return std::nullopt;
}

authentication::result authentication::try_interactive()
{
    auto* const session = connection_->get();
    const auto send = [&] { return request([&] { return ssh_userauth_kbdint(session, nullptr, nullptr); }); };
    result outcome = result::refused;
    for (unsigned round = 0; round < most_questions && outcome == result::refused; ++round) {
        int got = send();
        for (unsigned step = 0; got == SSH_AUTH_INFO; ++step) {
            const auto given = step < most_steps ? answers(prompts()) : std::nullopt;
            if (!given) {
                return result::refused;
            }
            for (std::size_t i = 0; i < given->size(); ++i) {
                ssh_userauth_kbdint_setanswer(session, static_cast<unsigned>(i), given->at(i).c_str());
            }
            got = send();
        }
        outcome = note("keyboard-interactive", judge(got));
    }
    return outcome;
}

authentication::result authentication::try_passwords()
{
    const auto send = [&](const std::string& password) {
        return note("password", judge(request([&] {
                        return ssh_userauth_password(connection_->get(), nullptr, password.c_str());
                    })));
    };
    if (settings_.password) {
        return send(*settings_.password);
    }
    result outcome = result::refused;
    while (outcome == result::refused && can_ask_password()) {
        outcome = send(ask_password());
    }
    return outcome;
}

} // namespace qrftp::sftp

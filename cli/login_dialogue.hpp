#pragma once

#include <qrftp/options.hpp>

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qrftp::cli {

/// What is asked at the terminal while sessions log in. Answers are remembered for further logins of the same
/// run, which may come from several threads; they are masked in traces.
class login_dialogue {
public:
    /// `subject` is what a password is for: "user@host". `password` answers the first single hidden prompt.
    login_dialogue(std::string subject, std::optional<std::string> password);

    /// Runs `command` for the password when it is first wanted.
    void use_command(const std::string& command);

    /// Throws `no_secret` where a command for the password fails. Up to three times at a terminal.
    std::optional<std::string> password(unsigned attempt);
    /// `was_wrong`: the one that is remembered does not open the key.
    std::optional<std::string> pass_phrase(const std::filesystem::path& key, bool was_wrong);
    std::optional<std::vector<std::string>> answers(const login_prompts& prompts);
    /// Without a terminal, every new key is accepted.
    bool accepts(const host_key& key);
    /// Without a terminal, every new certificate is accepted.
    bool accepts(const server_certificate& shown);

    /// Whether a secret was wanted, there was no password and no terminal to ask at.
    [[nodiscard]] bool lacks_terminal() const;

private:
    void run_command();
    /// `text`, which must not pass for a question of this program's own.
    [[nodiscard]] std::string asked_by_server(const std::string& text) const;
    std::optional<std::string> ask_hidden(const std::string& question);

    mutable std::mutex guard_;
    std::string subject_;
    std::optional<std::string> password_;
    std::string command_; ///< empty when it has been run
    bool has_used_password_ = false;
    std::map<std::filesystem::path, std::string> pass_phrases_;
    std::map<std::string, bool> certificates_; ///< by their pins, whether they are accepted
    bool lacks_terminal_ = false;
};

} // namespace qrftp::cli

#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::sftp {

/// One line of ssh_config(5): a keyword and its arguments, which double or single quotes hold together. What
/// reads an argument throws `InvalidOption` when there is none that means something.
class config_line {
public:
    /// `place` names the file and the line for messages.
    config_line(std::string_view text, std::string place);

    /// Lower case; empty for an empty line and for a comment.
    [[nodiscard]] const std::string& keyword() const { return keyword_; }
    [[nodiscard]] const std::vector<std::string>& arguments() const;
    [[nodiscard]] const std::string& argument() const { return arguments().front(); }
    /// Everything after the keyword, quotes and comments included.
    [[nodiscard]] std::string rest() const;

    [[nodiscard]] unsigned number() const;
    [[nodiscard]] std::uint16_t port() const;
    [[nodiscard]] bool yes_no() const;
    /// Seconds, or numbers with units: "1h30m".
    [[nodiscard]] std::chrono::seconds time() const;

    [[noreturn]] void reject(const std::string& reason) const;

private:
    void split(std::string_view text);

    std::string keyword_;
    std::string rest_;
    std::vector<std::string> arguments_;
    std::string place_;
};

/// `text` with a leading "~/" replaced; an account's name after "~" is left alone.
std::string expand_home(const std::string& text, const std::filesystem::path& home);

/// `text` with "%" and a letter replaced by what `tokens` has for the letter. Throws `InvalidOption` for a
/// letter that it has nothing for.
std::string replace_tokens(std::string_view text, const std::map<char, std::string>& tokens);

} // namespace qrftp::sftp

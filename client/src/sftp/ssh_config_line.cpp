#include "ssh_config_line.hpp"

#include "../wildcard.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <utility>

namespace qrftp::sftp {

namespace {

constexpr std::string_view blanks = " \t\r\f";

/// Takes a decimal number off the beginning of `text`.
std::optional<unsigned> take_number(std::string_view& text)
{
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

std::chrono::seconds unit_of(char letter)
{
    using namespace std::chrono_literals;
    switch (letter) {
    case 's':
        return 1s;
    case 'm':
        return 1min;
    case 'h':
        return 1h;
    case 'd':
        return 24h;
    case 'w':
        return 168h;
    default:
        return 0s;
    }
}

} // namespace

config_line::config_line(std::string_view text, std::string place) : place_(std::move(place))
{
    text = text.substr(0, text.find_last_not_of(blanks) + 1);
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    if (text.empty() || text.front() == '#') {
        return;
    }
    const std::string_view keyword = text.substr(0, text.find_first_of(" \t\r\f=\""));
    keyword_ = to_lower(keyword);
    text.remove_prefix(keyword.size());
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    if (text.starts_with('=')) {
        text.remove_prefix(1);
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    }
    if (keyword_.empty()) {
        reject("it has no keyword");
    }
    rest_ = text;
    split(text);
}

/// A backslash escapes quotes and itself.
void config_line::split(std::string_view text)
{
    std::optional<std::string> word;
    char quote = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if (c == '\\' && (next == '"' || next == '\'' || next == '\\')) {
            word = word.value_or("") + next;
            ++i;
        } else if (quote != 0 ? c == quote : c == '"' || c == '\'') {
            quote = quote != 0 ? '\0' : c;
            word = word.value_or("");
        } else if (quote == 0 && blanks.find(c) != std::string_view::npos) {
            if (word) {
                arguments_.push_back(*std::exchange(word, std::nullopt));
            }
        } else if (quote == 0 && c == '#' && !word) {
            return;
        } else {
            word = word.value_or("") + c;
        }
    }
    if (quote != 0) {
        rest_.clear();
        arguments_.clear(); // Only a keyword that is understood is worth an error.
    } else if (word) {
        arguments_.push_back(*word);
    }
}

void config_line::reject(const std::string& reason) const
{
    throw InvalidOption(place_, reason);
}

const std::vector<std::string>& config_line::arguments() const
{
    if (arguments_.empty()) {
        reject(fmt::format("\"{}\" has no value, or one with an open quote", keyword_));
    }
    return arguments_;
}

std::string config_line::rest() const
{
    if (rest_.empty()) {
        reject(fmt::format("\"{}\" has no value", keyword_));
    }
    return rest_;
}

unsigned config_line::number() const
{
    std::string_view text = argument();
    const auto value = take_number(text);
    if (!value || !text.empty()) {
        reject(fmt::format("\"{}\" is not a number", argument()));
    }
    return *value;
}

std::uint16_t config_line::port() const
{
    const unsigned value = number();
    if (value == 0 || value > 65535) {
        reject(fmt::format("\"{}\" is not a port", argument()));
    }
    return static_cast<std::uint16_t>(value);
}

bool config_line::yes_no() const
{
    const std::string value = to_lower(argument());
    if (value != "yes" && value != "true" && value != "no" && value != "false") {
        reject(fmt::format("\"{}\" is neither yes nor no", argument()));
    }
    return value == "yes" || value == "true";
}

std::chrono::seconds config_line::time() const
{
    const std::string lower = to_lower(argument());
    std::chrono::seconds whole(0);
    for (std::string_view rest = lower; !rest.empty();) {
        const auto value = take_number(rest);
        const auto unit = rest.empty() ? std::chrono::seconds(1) : unit_of(rest.front());
        if (!value || unit.count() == 0) {
            reject(fmt::format("\"{}\" is not a time", argument()));
        }
        rest.remove_prefix(rest.empty() ? 0 : 1);
        whole += *value * unit;
    }
    return whole;
}

std::string expand_home(const std::string& text, const std::filesystem::path& home)
{
    return text == "~" || text.starts_with("~/") ? home.string() + text.substr(1) : text;
}

std::string replace_tokens(std::string_view text, const std::map<char, std::string>& tokens)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        const auto found = ++i < text.size() ? tokens.find(text[i]) : tokens.end();
        if (found == tokens.end()) {
            throw InvalidOption(std::string(text), "it has a \"%\" token that is not known here");
        }
        result += found->second;
    }
    return result;
}

} // namespace qrftp::sftp

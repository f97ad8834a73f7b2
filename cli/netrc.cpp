#include "netrc.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace qrftp::cli {

namespace {

constexpr std::string_view separators = " \t\r\n";

std::string take_quoted_token(std::string_view& rest)
{
    std::string word;
    for (rest.remove_prefix(1); !rest.empty() && rest.front() != '"'; rest.remove_prefix(1)) {
        if (rest.front() == '\\' && rest.size() > 1) {
            rest.remove_prefix(1);
        }
        word += rest.front();
    }
    rest.remove_prefix(rest.empty() ? 0 : 1);
    return word;
}

/// The next word; empty at the end.
std::string take_token(std::string_view& rest)
{
    rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
    if (rest.starts_with('"')) {
        return take_quoted_token(rest);
    }
    const std::size_t end = std::min(rest.find_first_of(separators), rest.size());
    std::string word(rest.substr(0, end));
    rest.remove_prefix(end);
    return word;
}

void skip_to(std::string_view& rest, std::string_view end)
{
    rest.remove_prefix(std::min(rest.find(end), rest.size()));
}

struct machine {
    std::string name; ///< empty for the default one
    netrc_entry entry;
};

std::vector<machine> read_netrc(std::string_view text)
{
    std::vector<machine> all;
    for (std::string word = take_token(text); !word.empty(); word = take_token(text)) {
        if (word == "machine") {
            all.push_back({take_token(text), {}});
        } else if (word == "default") {
            all.push_back({});
        } else if (word == "macdef") {
            skip_to(text, "\n\n");
        } else if (word.starts_with('#')) {
            skip_to(text, "\n");
        } else if (std::string value = take_token(text); !all.empty()) {
            netrc_entry& entry = all.back().entry;
            (word == "login" ? entry.login : word == "password" ? entry.password : word) = std::move(value);
        }
    }
    return all;
}

} // namespace

std::optional<netrc_entry> find_in_netrc(std::string_view text, std::string_view host, std::string_view user)
{
    std::optional<netrc_entry> by_default;
    for (const machine& one : read_netrc(text)) {
        const bool fits = user.empty() || one.entry.login.empty() || one.entry.login == user;
        if (fits && one.name == host) {
            return one.entry;
        }
        if (fits && one.name.empty() && !by_default) {
            by_default = one.entry;
        }
    }
    return by_default;
}

} // namespace qrftp::cli

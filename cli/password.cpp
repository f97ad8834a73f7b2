#include "password.hpp"

#include <zorbel/io/common/file/FileSystem.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace qrftp::cli {

namespace fs = std::filesystem;
using zorbel::io::common::file::read_whole_file;

namespace {

constexpr std::string_view netrc_blanks = " \t\r\n";

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
    rest.remove_prefix(std::min(rest.find_first_not_of(netrc_blanks), rest.size()));
    if (rest.starts_with('"')) {
        return take_quoted_token(rest);
    }
    const std::size_t end = std::min(rest.find_first_of(netrc_blanks), rest.size());
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

const passwd* own_account()
{
    return getpwuid(getuid()); // NOLINT(concurrency-mt-unsafe): one thread
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

fs::path expand_home(const std::string& path)
{
    if (path != "~" && !path.starts_with("~/")) {
        return path;
    }
    const passwd* account = own_account();
    const std::string home = environment("HOME").value_or(account == nullptr ? "" : account->pw_dir);
    return home + path.substr(1);
}

std::string first_line(const fs::path& file)
{
    const std::string text = read_whole_file(file);
    return text.substr(0, text.find_first_of("\r\n"));
}

std::optional<std::string> environment(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): one thread
    return value == nullptr ? std::optional<std::string>() : value;
}

std::string own_name()
{
    const passwd* account = own_account();
    return environment("USER").value_or(account == nullptr ? "" : account->pw_name);
}

bool is_encrypted(const fs::path& key)
{
    // What the base64 of an OpenSSH key begins with when both its cipher and its key derivation are "none".
    constexpr std::string_view open_key = "b3BlbnNzaC1rZXktdjEAAAAABG5vbmUAAAAEbm9uZ";
    const std::string text = read_whole_file(key);
    return text.find("BEGIN OPENSSH PRIVATE KEY") != std::string::npos
               ? text.find(open_key) == std::string::npos
               : text.find("ENCRYPTED") != std::string::npos;
}

} // namespace qrftp::cli

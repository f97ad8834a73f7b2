#include "profiles.hpp"

#include "environment.hpp"
#include "settings.hpp"

#include <qrftp/trace.hpp>
#include <qrftp/url.hpp>

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <optional>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace qrftp::cli {

namespace fs = std::filesystem;

namespace {

constexpr std::array schemes{"ftp", "ftps", "sftp", "ssh", "scp", "http", "https", "file"};

file_position to_position(const toml::source_position& place)
{
    return {place.line, place.column};
}

/// A value that a word of a command line can be.
std::optional<std::string> word_of(const toml::node& value)
{
    if (const auto* const text = value.as_string()) {
        return text->get();
    }
    if (const auto* const number = value.as_integer()) {
        return fmt::to_string(number->get());
    }
    if (const auto* const number = value.as_floating_point()) {
        return fmt::to_string(number->get());
    }
    return std::nullopt;
}

/// Reads one file; `list_` names it in messages.
class parser {
public:
    explicit parser(profile_list& list) : list_(list) {}

    void run()
    {
        try {
            const toml::table top = toml::parse(std::string_view(list_.content));
            for (const auto& [key, value] : top) {
                add_table(std::string(key.str()), value, key.source().begin.line);
            }
        } catch (const toml::parse_error& error) {
            refuse(error.source().begin.line, fmt::format("{}.", error.description()));
        }
        std::ranges::sort(list_.profiles, {}, &profile::line);
    }

private:
    [[noreturn]] void refuse(std::size_t line, const std::string& why) const
    {
        throw usage_error(fault_in(list_, line, why));
    }

    void add_table(const std::string& name, const toml::node& value, std::size_t line)
    {
        const toml::table* const table = value.as_table();
        if (table == nullptr) {
            refuse(line, fmt::format("\"{}\" stands outside a table: write it below [NAME] or [{}].", name,
                                     defaults_name));
        }
        if (const std::string fault = fault_of_name(name); !fault.empty() && name != defaults_name) {
            refuse(line, fault);
        }
        profile found{name, line, {}};
        for (const auto& [key, setting] : *table) {
            found.settings.push_back(
                read_setting(name, std::string(key.str()), setting, key.source().begin.line));
        }
        std::ranges::sort(found.settings, {}, &profile_setting::line);
        list_.profiles.push_back(std::move(found));
    }

    [[nodiscard]] profile_setting read_setting(const std::string& table, const std::string& key,
                                               const toml::node& value, std::size_t line) const
    {
        profile_setting found{key,
                              {},
                              profile_setting::kind::text,
                              line,
                              to_position(value.source().begin),
                              to_position(value.source().end)};
        if (const auto* const flag = value.as_boolean()) {
            found.type = profile_setting::kind::flag;
            found.values = {flag->get() ? "true" : "false"};
        } else if (const auto* const list = value.as_array()) {
            found.type = profile_setting::kind::list;
            for (const toml::node& one : *list) {
                found.values.push_back(checked_word(table, key, one, line));
            }
        } else {
            found.type = value.is_number() ? profile_setting::kind::number : profile_setting::kind::text;
            found.values = {checked_word(table, key, value, line)};
        }
        if (const std::string fault = fault_of_secret(found); !fault.empty()) {
            refuse(line, fmt::format("[{}] {}", table, fault));
        }
        return found;
    }

    [[nodiscard]] std::string checked_word(const std::string& table, const std::string& key,
                                           const toml::node& value, std::size_t line) const
    {
        std::optional<std::string> word = word_of(value);
        if (!word) {
            refuse(line, fmt::format("[{}] {} must be a text, a number, true or false, or a list of texts.",
                                     table, key));
        }
        return *std::move(word);
    }

    profile_list& list_;
};

/// A remote place as profiles and URLs say it: seen from the root or from the folder of the login.
struct remote_place {
    bool absolute = false;
    std::string path{};

    /// Goes on to `next`, which is seen from here unless it begins with "/" or "~".
    void enter(std::string_view next)
    {
        const bool from_login = next == "~" || next.starts_with("~/");
        if (from_login || next.starts_with('/')) {
            absolute = !from_login;
            path.clear();
            next.remove_prefix(std::min(next.find_first_not_of('/', from_login ? 1 : 0), next.size()));
        }
        if (!path.empty() && !next.empty() && !path.ends_with('/')) {
            path += '/';
        }
        path += next;
    }
};

/// The path of a URL, which goes on behind the host; what it is seen from differs between the two protocols.
remote_place place_in_url(bool is_sftp, std::string_view path)
{
    remote_place place;
    if (is_sftp && (path == "/~" || path.starts_with("/~/"))) {
        place.enter(path.substr(1));
    } else if (path.size() > 1) {
        place.absolute = is_sftp || path[1] == '/';
        place.path = path.substr(place.absolute && !is_sftp ? 2 : 1);
    }
    return place;
}

/// `text` as the user of a URL.
std::string encode_user(std::string_view text)
{
    std::string encoded;
    for (const char byte : text) {
        encoded += fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
    return encoded;
}

/// What a URL has in front of its path, with the profile's user where that has one.
std::string server_of(const profile& named, std::string_view url, std::size_t host, std::size_t path)
{
    const std::string user = named.text("user");
    const std::size_t at = url.substr(0, path).rfind('@');
    const std::size_t start = at == std::string_view::npos ? host : at + 1;
    return user.empty() ? std::string(url.substr(0, path))
                        : fmt::format("{}{}@{}", url.substr(0, host), encode_user(user),
                                      url.substr(start, path - start));
}

void refuse_writable(const profile_list& list)
{
    struct stat status {};
    if (::stat(list.file.c_str(), &status) != 0) {
        return; // Reading it says why.
    }
    const bool is_foreign = status.st_uid != geteuid() && status.st_uid != 0;
    if (is_foreign) {
        throw usage_error(
            fmt::format("{} belongs to another user, and names programs to run.", escape(list.file.string())));
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw usage_error(
            fmt::format("Others can write to {}, which names programs to run. Change that: chmod go-w {}",
                        escape(list.file.string()), escape(list.file.string())));
    }
}

} // namespace

const profile_setting* profile::find(std::string_view key) const
{
    const auto found = std::ranges::find(settings, key, &profile_setting::key);
    return found == settings.end() ? nullptr : &*found;
}

std::string profile::text(std::string_view key) const
{
    const profile_setting* const found = find(key);
    return found == nullptr || found->values.empty() ? "" : found->values.front();
}

const profile* profile_list::find(std::string_view name) const
{
    const auto found = std::ranges::find(profiles, name, &profile::name);
    return found == profiles.end() ? nullptr : &*found;
}

fs::path config_file()
{
    return user_folder("XDG_CONFIG_HOME", "~/.config") / "config.toml";
}

profile_list parse_profiles(const fs::path& file, std::string content)
{
    profile_list list{file, std::move(content), {}};
    parser(list).run();
    return list;
}

profile_list read_profiles()
{
    profile_list list{config_file(), {}, {}};
    std::error_code ignored;
    if (!fs::exists(list.file, ignored)) {
        return list;
    }
    refuse_writable(list);
    return parse_profiles(list.file, read_file(list.file));
}

std::string fault_in(const profile_list& list, std::size_t line, std::string_view what)
{
    return fmt::format("{}, line {}: {}", list.file.string(), line, what);
}

std::string fault_of_name(std::string_view name)
{
    const bool is_plain = !name.empty() && std::ranges::all_of(name, [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
               byte == '-' || byte == '_';
    });
    if (!is_plain || name.front() == '-') {
        return fmt::format(R"("{}" cannot be the name of a profile: use letters, digits, "-" and "_".)", name);
    }
    if (std::ranges::find(schemes, name) != schemes.end()) {
        return fmt::format("\"{}\" cannot be the name of a profile: URLs begin with it.", name);
    }
    return name == defaults_name
               ? fmt::format("\"{}\" cannot be the name of a profile: it holds for all.", name)
               : "";
}

std::string fault_of_secret(const profile_setting& one)
{
    const bool is_secret = one.key == "password" || one.key == "pass-phrase";
    const bool has_secret = one.key == "url" && !one.values.empty() && !password_in(one.values.front()).empty();
    return is_secret || has_secret
               ? fmt::format(
                     "{} holds a secret, and the file is not for those: password-command names a program that "
                     "prints the password, password-file and pass-phrase-file name files.",
                     one.key)
               : "";
}

std::string encode_for_url(std::string_view name)
{
    std::string text;
    for (const char byte : name) {
        const auto value = static_cast<unsigned char>(byte);
        const bool plain = value >= 0x20 && value != 0x7f &&
                           std::string_view("%*?[]\\'\"$`!").find(byte) == std::string_view::npos;
        text += plain ? std::string(1, byte) : fmt::format("%{:02X}", value);
    }
    return text;
}

const profile* profile_of(const profile_list& list, std::string_view word)
{
    const std::size_t colon = word.find(':');
    const std::string_view name = word.substr(0, std::min(colon, word.size()));
    return colon == std::string_view::npos || name == defaults_name ? nullptr : list.find(name);
}

std::string url_of(const profile_list& list, const profile& named, std::string_view word)
{
    const std::string base = named.text("url");
    const std::size_t host = base.find("://");
    if (host == std::string::npos) {
        throw usage_error(
            fault_in(list, named.line,
                     fmt::format("[{0}] has no URL: qrftp profile set {0} url=sftp://HOST/", named.name)));
    }
    const bool is_sftp = base.starts_with("sftp");
    const std::size_t slash = std::min(base.find('/', host + 3), base.size());
    remote_place place = place_in_url(is_sftp, std::string_view(base).substr(slash));
    place.enter(encode_for_url(named.text("folder")));
    place.enter(word.substr(word.find(':') + 1));
    const std::string_view before = is_sftp ? (place.absolute ? "/" : "/~/") : (place.absolute ? "//" : "/");
    return fmt::format("{}{}{}", server_of(named, base, host + 3, slash), before, place.path);
}

} // namespace qrftp::cli

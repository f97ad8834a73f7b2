#include "ssh_config.hpp"

#include "../wildcard.hpp"
#include "ssh_config_line.hpp"

#include <qrftp/error.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

namespace qrftp::sftp {

namespace fs = std::filesystem;

namespace {

constexpr unsigned max_depth = 16;
constexpr unsigned max_files = 1024;

class parser {
public:
    parser(const ssh_config_query& query, const ssh_config_includes& includes)
        : query_(query), includes_(includes)
    {
    }

    void read(const ssh_config_source& source, unsigned depth);
    ssh_config finish();

private:
    using setter = void (parser::*)(const config_line&);

    void read_line(const config_line& line, const ssh_config_source& source, unsigned depth);
    void include(const config_line& line, const ssh_config_source& source, unsigned depth);
    [[nodiscard]] bool host_matches(const config_line& line) const;
    [[nodiscard]] bool match_matches(const config_line& line) const;
    [[nodiscard]] bool criterion_matches(std::string_view name, const std::string& patterns) const;
    [[nodiscard]] std::string host_name() const;
    [[nodiscard]] std::string user() const;
    [[nodiscard]] std::string expand(const std::string& text) const;
    [[nodiscard]] std::vector<fs::path> paths(const std::vector<std::string>& texts) const;

    void set_host_name(const config_line& line) { set_text(config_.host_name, line); }
    void set_user(const config_line& line) { set_text(config_.user, line); }
    void set_host_key_alias(const config_line& line) { set_text(config_.host_key_alias, line); }
    void set_port(const config_line& line) { set_once(config_.port, line.port()); }
    void set_identities_only(const config_line& line) { set_once(config_.identities_only, line.yes_no()); }
    void set_proxy_jump(const config_line& line) { set_proxy(config_.proxy_jump, config_.proxy_command, line); }
    void set_proxy_command(const config_line& line)
    {
        set_proxy(config_.proxy_command, config_.proxy_jump, line);
    }
    void set_connect_timeout(const config_line& line) { set_time(config_.connect_timeout, line); }
    void set_alive_interval(const config_line& line) { set_time(config_.server_alive_interval, line); }
    void set_alive_count(const config_line& line) { set_once(config_.server_alive_count_max, line.number()); }
    void set_user_known_hosts(const config_line& line) { set_once(user_known_hosts_, line.arguments()); }
    void set_global_known_hosts(const config_line& line) { set_once(global_known_hosts_, line.arguments()); }
    void set_strict(const config_line& line)
    {
        set_once(config_.strict_host_key_checking, to_lower(line.argument()));
    }
    void add_identity(const config_line& line) { identities_.push_back(line.argument()); }
    void add_certificate(const config_line& line) { certificates_.push_back(line.argument()); }

    static void set_text(std::string& value, const config_line& line)
    {
        value = value.empty() ? line.argument() : value;
    }
    template <class Value>
    static void set_once(std::optional<Value>& value, Value read)
    {
        value = value ? std::move(value) : std::optional<Value>(std::move(read));
    }
    static void set_time(std::optional<std::chrono::seconds>& value, const config_line& line)
    {
        if (to_lower(line.argument()) != "none") {
            set_once(value, line.time());
        }
    }
    /// The first line of either kind counts.
    static void set_proxy(std::optional<std::string>& value, const std::optional<std::string>& other,
                          const config_line& line)
    {
        if (!other) {
            set_once(value, line.rest());
        }
    }

    static const std::map<std::string_view, setter> setters;

    const ssh_config_query& query_;
    const ssh_config_includes& includes_;
    ssh_config config_;
    std::vector<std::string> identities_;
    std::vector<std::string> certificates_;
    std::optional<std::vector<std::string>> user_known_hosts_;
    std::optional<std::vector<std::string>> global_known_hosts_;
    bool active_ = true; ///< whether the lines being read are about the host
    unsigned files_ = 0;
};

const std::map<std::string_view, parser::setter> parser::setters = {
    {"certificatefile", &parser::add_certificate},
    {"connecttimeout", &parser::set_connect_timeout},
    {"globalknownhostsfile", &parser::set_global_known_hosts},
    {"hostkeyalias", &parser::set_host_key_alias},
    {"hostname", &parser::set_host_name},
    {"identitiesonly", &parser::set_identities_only},
    {"identityfile", &parser::add_identity},
    {"port", &parser::set_port},
    {"proxycommand", &parser::set_proxy_command},
    {"proxyjump", &parser::set_proxy_jump},
    {"serveralivecountmax", &parser::set_alive_count},
    {"serveraliveinterval", &parser::set_alive_interval},
    {"stricthostkeychecking", &parser::set_strict},
    {"user", &parser::set_user},
    {"userknownhostsfile", &parser::set_user_known_hosts},
};

void parser::read(const ssh_config_source& source, unsigned depth)
{
    if (depth > max_depth || ++files_ > max_files) {
        throw InvalidOption(source.file.string(), "too many Include lines within each other");
    }
    active_ = true; // Each file begins with lines about every host.
    unsigned number = 0;
    for (std::string_view rest = source.text; !rest.empty();) {
        const std::string_view text = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(text.size() + 1, rest.size()));
        const config_line line(text, fmt::format("{}:{}", source.file.string(), ++number));
        if (!line.keyword().empty()) {
            read_line(line, source, depth);
        }
    }
}

void parser::read_line(const config_line& line, const ssh_config_source& source, unsigned depth)
{
    if (line.keyword() == "host") {
        active_ = host_matches(line);
    } else if (line.keyword() == "match") {
        active_ = match_matches(line);
    } else if (!active_) {
        return;
    } else if (line.keyword() == "include") {
        include(line, source, depth);
    } else if (const auto found = setters.find(line.keyword()); found != setters.end()) {
        (this->*found->second)(line);
    }
}

void parser::include(const config_line& line, const ssh_config_source& source, unsigned depth)
{
    for (const std::string& pattern : line.arguments()) {
        fs::path path = expand_home(pattern, query_.home);
        path = path.is_absolute() ? path : source.include_folder / path;
        for (const ssh_config_source& included : includes_(path)) {
            read(included, depth + 1);
            active_ = true; // An included file's last block ends with it.
        }
    }
}

bool parser::host_matches(const config_line& line) const
{
    bool covered = false;
    for (const std::string& pattern : line.arguments()) {
        if (pattern.starts_with('!')) {
            if (wildcard_matches(std::string_view(pattern).substr(1), query_.host)) {
                return false;
            }
        } else {
            covered = covered || wildcard_matches(pattern, query_.host);
        }
    }
    return covered;
}

bool parser::match_matches(const config_line& line) const
{
    const auto& words = line.arguments();
    bool matches = true;
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string name = to_lower(words[i]);
        if (name == "all") {
            continue;
        }
        const bool negated = name.starts_with('!');
        name.erase(0, negated ? 1 : 0);
        if (name != "host" && name != "originalhost" && name != "user" && name != "localuser") {
            return false;
        }
        if (++i == words.size()) {
            line.reject(fmt::format("\"{}\" needs a pattern", words[i - 1]));
        }
        matches = matches && criterion_matches(name, words[i]) != negated;
    }
    return matches;
}

bool parser::criterion_matches(std::string_view name, const std::string& patterns) const
{
    if (name == "host") {
        return pattern_list_matches(to_lower(patterns), to_lower(host_name()));
    }
    if (name == "originalhost") {
        return pattern_list_matches(to_lower(patterns), to_lower(query_.host));
    }
    return pattern_list_matches(patterns, name == "localuser" ? query_.local_user : user());
}

std::string parser::host_name() const
{
    return config_.host_name.empty() ? query_.host
                                     : replace_tokens(config_.host_name, {{'h', query_.host}, {'%', "%"}});
}

std::string parser::user() const
{
    const std::string& named = query_.user.empty() ? config_.user : query_.user;
    return named.empty() ? query_.local_user : named;
}

std::string parser::expand(const std::string& text) const
{
    const std::string& key_name = config_.host_key_alias.empty() ? query_.host : config_.host_key_alias;
    return replace_tokens(expand_home(text, query_.home), {{'%', "%"},
                                                           {'d', query_.home.string()},
                                                           {'h', host_name()},
                                                           {'k', key_name},
                                                           {'n', query_.host},
                                                           {'r', user()},
                                                           {'u', query_.local_user}});
}

std::vector<fs::path> parser::paths(const std::vector<std::string>& texts) const
{
    std::vector<fs::path> result;
    for (const std::string& text : texts) {
        if (to_lower(text) != "none") {
            result.emplace_back(expand(text));
        }
    }
    return result;
}

ssh_config parser::finish()
{
    config_.identity_files = paths(identities_);
    config_.no_identity_files = !identities_.empty() && config_.identity_files.empty();
    config_.certificate_files = paths(certificates_);
    if (user_known_hosts_) {
        config_.user_known_hosts_files = paths(*user_known_hosts_);
    }
    if (global_known_hosts_) {
        config_.global_known_hosts_files = paths(*global_known_hosts_);
    }
    config_.host_name = host_name();
    return std::move(config_);
}

} // namespace

ssh_config parse_ssh_config(const std::vector<ssh_config_source>& sources, const ssh_config_query& query,
                            const ssh_config_includes& includes)
{
    parser reader(query, includes);
    for (const ssh_config_source& source : sources) {
        reader.read(source, 0);
    }
    return reader.finish();
}

} // namespace qrftp::sftp

#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// The table of the configuration file that holds for every run.
inline constexpr std::string_view defaults_name = "defaults";

/// A place in the configuration file; both count from 1, columns in characters.
struct file_position {
    std::size_t line = 0;
    std::size_t column = 0;
};

/// A key of a table, and its value as the words that a command line would have.
struct profile_setting {
    enum class kind { text, number, flag, list };

    std::string key;
    std::vector<std::string> values; ///< a flag's is "true" or "false"
    kind type = kind::text;
    std::size_t line = 0;  ///< where the key stands
    file_position begin{}; ///< of the value
    file_position end{};   ///< behind the value
};

/// A table of the configuration file: a server and options under a name, or the defaults.
struct profile {
    std::string name;
    std::size_t line = 0;                  ///< of its heading
    std::vector<profile_setting> settings; ///< in their order in the file

    /// The setting of that key; null where there is none.
    [[nodiscard]] const profile_setting* find(std::string_view key) const;
    /// The value of that key; empty where there is none.
    [[nodiscard]] std::string text(std::string_view key) const;
};

/// What the configuration file says.
struct profile_list {
    std::filesystem::path file;
    std::string content;
    std::vector<profile> profiles; ///< in their order in the file, the defaults among them

    /// The table of that name; null where there is none.
    [[nodiscard]] const profile* find(std::string_view name) const;
};

/// $XDG_CONFIG_HOME/qrftp/config.toml, or ~/.config/qrftp/config.toml.
std::filesystem::path config_file();

/// Takes the content of a configuration file apart. Throws `usage_error`, which names the file and the line:
/// for what is no TOML, a name that is none, a value of another kind than the four above, and a password.
profile_list parse_profiles(const std::filesystem::path& file, std::string content);

/// The configuration file; one that is missing says nothing. Throws `usage_error` as above and for a file that
/// others can write to; `LocalFileError`.
profile_list read_profiles();

/// The sentence for a fault in that line of the file.
std::string fault_in(const profile_list& list, std::size_t line, std::string_view what);

/// Why `name` cannot be the name of a profile; empty where it can.
std::string fault_of_name(std::string_view name);

/// `name` as a URL has it: what would be a wildcard, a control character, an encoded byte or special between
/// the quotes of a shell is percent-encoded.
std::string encode_for_url(std::string_view name);

/// Why `one` may not stand in the file, which is not for secrets; empty where it may.
std::string fault_of_secret(const profile_setting& one);

/// The profile that `word` begins with, as in "work:reports"; null where there is none of that name.
const profile* profile_of(const profile_list& list, std::string_view word);

/// The URL that `word`, "NAME:PATH", stands for: the profile's `url`, its `folder`, and PATH below them. A PATH
/// that begins with "/" is seen from the root, one that begins with "~/" from the folder of the login. Throws
/// `usage_error` for a profile without a URL.
std::string url_of(const profile_list& list, const profile& named, std::string_view word);

} // namespace qrftp::cli

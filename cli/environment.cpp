#include "environment.hpp"

#include <qrftp/error.hpp>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>

#include <pwd.h>
#include <unistd.h>

namespace qrftp::cli {

std::optional<std::string> environment(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    return value == nullptr ? std::optional<std::string>() : value;
}

std::vector<std::string> environment_without_secrets()
{
    std::vector<std::string> kept;
    for (char** next = environ; *next != nullptr; ++next) {
        const std::string_view entry = *next;
        const std::string_view name = entry.substr(0, entry.find('='));
        if (name != password_variable && name != pass_phrase_variable) {
            kept.emplace_back(entry);
        }
    }
    return kept;
}

std::filesystem::path expand_home(const std::string& path)
{
    if (path != "~" && !path.starts_with("~/")) {
        return path;
    }
    std::string home = environment("HOME").value_or("");
    if (home.empty()) {
        const passwd* account = getpwuid(getuid()); // NOLINT(concurrency-mt-unsafe): one thread
        home = account == nullptr ? "" : account->pw_dir;
    }
    return home + path.substr(1);
}

std::filesystem::path user_folder(const char* variable, const std::string& usual)
{
    const std::filesystem::path own = environment(variable).value_or("");
    return (own.is_absolute() ? own : expand_home(usual)) / "qrftp";
}

std::string read_file(const std::filesystem::path& file)
{
    std::error_code ignored;
    errno = std::filesystem::is_directory(file, ignored) ? EISDIR : 0;
    std::ifstream input;
    if (errno == 0) {
        input.open(file, std::ios::binary);
    }
    if (!input.is_open()) {
        throw LocalFileError(file.string(), std::error_code(errno, std::generic_category()));
    }
    return {std::istreambuf_iterator<char>(input), {}};
}

std::string first_line(const std::filesystem::path& file)
{
    const std::string text = read_file(file);
    return text.substr(0, text.find_first_of("\r\n"));
}

} // namespace qrftp::cli

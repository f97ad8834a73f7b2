#include "environment.hpp"

#include <qrftp/error.hpp>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

std::map<std::string, std::optional<std::string>> taken; // NOLINT(cert-err58-cpp): nothing can be caught yet

} // namespace

std::optional<std::string> environment(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    return value == nullptr ? std::optional<std::string>() : value;
}

void take_secrets()
{
    for (const char* const name : {password_variable, pass_phrase_variable}) {
        taken[name] = environment(name);
        unsetenv(name); // NOLINT(concurrency-mt-unsafe): one thread
    }
}

std::optional<std::string> secret(const char* name)
{
    return taken[name];
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

void make_private_folder(const std::filesystem::path& folder)
{
    const mode_t saved = umask(S_IRWXG | S_IRWXO);
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    umask(saved);
}

std::string first_line(const std::filesystem::path& file)
{
    const std::string text = read_file(file);
    return text.substr(0, text.find_first_of("\r\n"));
}

} // namespace qrftp::cli

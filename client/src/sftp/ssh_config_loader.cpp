#include "ssh_config_loader.hpp"

#include "../text_file.hpp"

#include <qrftp/error.hpp>

#include <glob.h>
#include <memory>
#include <new>
#include <optional>
#include <system_error>

namespace qrftp::sftp {

namespace fs = std::filesystem;

namespace {

const fs::path system_folder = "/etc/ssh"; // NOLINT(cert-err58-cpp)

/// As ssh(1): a file that nobody named and that cannot be opened is none. One that others can write to is an
/// error.
std::optional<std::string> read_if_there(const fs::path& file, file_writers writers)
{
    try {
        return read_text_file(file, writers);
    } catch (const LocalFileError& e) {
        if (e.code() == std::errc::operation_not_permitted) {
            throw;
        }
        return std::nullopt;
    }
}

std::vector<fs::path> glob(const fs::path& pattern)
{
    glob_t found{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): only with GLOB_TILDE
    const int result = ::glob(pattern.c_str(), 0, nullptr, &found);
    const std::unique_ptr<glob_t, decltype(&::globfree)> owner(&found, &::globfree);
    if (result == GLOB_NOSPACE) {
        throw std::bad_alloc();
    }
    return result == 0 ? std::vector<fs::path>(found.gl_pathv, found.gl_pathv + found.gl_pathc)
                       : std::vector<fs::path>();
}

std::vector<ssh_config_source> find_includes(const fs::path& pattern, const fs::path& user_folder)
{
    const bool of_user = pattern.native().starts_with(user_folder.native());
    const auto writers = of_user ? file_writers::this_user_or_root : file_writers::anyone;
    std::vector<ssh_config_source> included;
    for (const fs::path& file : glob(pattern)) {
        if (auto text = read_if_there(file, writers)) {
            included.push_back({std::move(*text), file, of_user ? user_folder : system_folder});
        }
    }
    return included;
}

std::vector<ssh_config_source> read_sources(const ssh_config_files& files, const fs::path& user_folder)
{
    std::vector<ssh_config_source> sources;
    if (files.only) {
        if (!files.only->empty()) {
            sources.push_back({read_text_file(*files.only), *files.only, user_folder});
        }
        return sources;
    }
    const fs::path user_file = user_folder / "config";
    if (auto text = read_if_there(user_file, file_writers::this_user_or_root)) {
        sources.push_back({std::move(*text), user_file, user_folder});
    }
    const fs::path system_file = system_folder / "ssh_config";
    if (auto text = read_if_there(system_file, file_writers::anyone)) {
        sources.push_back({std::move(*text), system_file, system_folder});
    }
    return sources;
}

} // namespace

ssh_config load_ssh_config(const ssh_config_files& files, const ssh_config_query& query)
{
    const fs::path user_folder = query.home / ".ssh";
    return parse_ssh_config(read_sources(files, user_folder), query,
                            [&](const fs::path& pattern) { return find_includes(pattern, user_folder); });
}

} // namespace qrftp::sftp

#pragma once

#include <qrftp/error.hpp>

#include <filesystem>

namespace qrftp {

/// Calls `work`; what the file system refuses is thrown as the client's own error about `shown`, the path that
/// the caller named.
template <class Work>
decltype(auto) with_local_errors(const std::filesystem::path& shown, Work&& work)
{
    try {
        return std::forward<Work>(work)();
    } catch (const std::filesystem::filesystem_error& failure) {
        throw LocalFileError(shown.string(), failure.code());
    }
}

} // namespace qrftp

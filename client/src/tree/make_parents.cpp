#include "make_parents.hpp"

#include "../remote_path.hpp"

#include <algorithm>
#include <vector>

namespace qrftp {

namespace {

/// The deepest first.
std::vector<std::string> missing_folders(protocol& server, std::string path)
{
    std::vector<std::string> missing;
    while (path != "/" && !server.find(path)) {
        missing.push_back(path);
        path = remote_path::parent(path);
    }
    return missing;
}

} // namespace

bool make_with_parents(protocol& server, const std::string& path)
{
    try {
        server.make_folder(path);
        return true;
    } catch (const AlreadyExists&) {
        if (server.is_folder(path)) {
            return false;
        }
        throw;
    } catch (const error& failure) {
        if (failure.cause() != error_cause::not_found && failure.cause() != error_cause::refused &&
            failure.cause() != error_cause::permission_denied) {
            throw;
        }
        const auto missing = missing_folders(server, path);
        if (missing.size() < 2) {
            throw;
        }
        std::for_each(missing.rbegin(), missing.rend(),
                      [&](const std::string& folder) { server.make_folder(folder); });
        return true;
    }
}

} // namespace qrftp

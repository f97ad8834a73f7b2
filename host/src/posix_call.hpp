#pragma once

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace zorbel::io::common::file {

/// The result of `call`, made again as long as a signal interrupts it.
template <class Call>
auto repeat_interrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// The result of `call`; throws what the system says when it fails.
template <class Call>
auto checked(const std::filesystem::path& path, Call call)
{
    const auto result = repeat_interrupted(call);
    if (result == -1) {
        throw std::filesystem::filesystem_error("local file", path, {errno, std::generic_category()});
    }
    return result;
}

} // namespace zorbel::io::common::file

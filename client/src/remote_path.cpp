#include "remote_path.hpp"

#include "hasher.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace qrftp::remote_path {

namespace {

constexpr std::string_view temporary_prefix = ".qrftp-";
constexpr std::string_view part_suffix = ".part";
constexpr std::string_view aside_suffix = ".old";
constexpr std::size_t temporary_digits = 16;

std::string random_name(std::string_view suffix)
{
    thread_local std::random_device entropy; // costly to open
    const std::uint64_t high = entropy();
    return fmt::format("{}{:016x}{}", temporary_prefix, high << 32U | entropy(), suffix);
}

bool is_name_with(std::string_view suffix, std::string_view name)
{
    if (!name.starts_with(temporary_prefix) || !name.ends_with(suffix) ||
        name.size() != temporary_prefix.size() + temporary_digits + suffix.size()) {
        return false;
    }
    const std::string_view digits = name.substr(temporary_prefix.size(), temporary_digits);
    return digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

} // namespace

std::string absolute(std::string_view folder, std::string_view path)
{
    const std::string whole = path.starts_with('/') ? std::string(path) : fmt::format("{}/{}", folder, path);
    std::vector<std::string_view> segments;
    for (std::size_t begin = 0; begin < whole.size();) {
        const std::size_t end = std::min(whole.find('/', begin), whole.size());
        const std::string_view segment = std::string_view(whole).substr(begin, end - begin);
        begin = end + 1;
        if (segment == "..") {
            if (!segments.empty()) {
                segments.pop_back();
            }
        } else if (!segment.empty() && segment != ".") {
            segments.push_back(segment);
        }
    }
    std::string result;
    for (const std::string_view segment : segments) {
        result.append("/").append(segment);
    }
    return result.empty() ? "/" : result;
}

std::string parent(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string_view::npos ? "/" : std::string(path.substr(0, slash));
}

std::string filename(std::string_view path)
{
    return std::string(path == "/" ? path : path.substr(path.rfind('/') + 1));
}

std::string join(std::string_view folder, std::string_view name)
{
    std::string result(folder);
    if (!folder.empty() && !folder.ends_with('/')) {
        result += '/';
    }
    return result.append(name);
}

bool is_or_contains(std::string_view path, std::string_view folder)
{
    return path == "/" || folder == path || folder.starts_with(join(path, ""));
}

std::string temporary_name()
{
    return random_name(part_suffix);
}

std::string temporary_name(std::string_view identity)
{
    hasher digits(hash_algorithm::sha256);
    digits.add(identity);
    return fmt::format("{}{}{}", temporary_prefix, digits.finish().digits.substr(0, temporary_digits),
                       part_suffix);
}

std::string aside_name()
{
    return random_name(aside_suffix);
}

bool is_temporary_name(std::string_view name)
{
    return is_part_name(name) || is_name_with(aside_suffix, name);
}

bool is_part_name(std::string_view name)
{
    return is_name_with(part_suffix, name);
}

} // namespace qrftp::remote_path

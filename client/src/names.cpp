#include "names.hpp"

#include <foundation/core/except/Exception.hpp>
#include <qrftp/errors.hpp>

#include <algorithm>
#include <random>
#include <vector>

namespace qrftp::names {

using foundation::core::except::raise;

void check(std::string_view text, const char* what)
{
    static constexpr std::string_view forbidden("\r\n\0", 3);
    const std::size_t place = text.find_first_of(forbidden);
    if (place == std::string_view::npos) {
        return;
    }
    const char* const byte = text[place] == '\r' ? "CR" : text[place] == '\n' ? "LF" : "NUL";
    // The text itself may be a password.
    raise<error::InvalidName>(what, std::string("a ") + byte + " at position " + std::to_string(place));
}

std::string absolute(const std::string& folder, const std::string& path)
{
    check(path, "the name");
    const std::string whole = path.starts_with('/') ? path : folder + '/' + path;
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

std::string parent(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

std::string last(const std::string& path)
{
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string join(const std::string& folder, const std::string& name)
{
    return folder.ends_with('/') ? folder + name : folder + '/' + name;
}

std::string temporary()
{
    static constexpr std::string_view digits = "0123456789abcdef";
    static constexpr int length = 16;
    thread_local std::random_device entropy; // costly to open
    std::string name = ".qrftp-";
    for (int i = 0; i < length; ++i) {
        name += digits[entropy() % digits.size()];
    }
    return name + ".part";
}

} // namespace qrftp::names

#include "wildcard.hpp"

#include <algorithm>
#include <cstddef>

namespace qrftp {

std::string to_lower(std::string_view text)
{
    std::string result(text);
    for (char& c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return result;
}

std::string_view take_token(std::string_view& rest, std::string_view separators)
{
    const std::string_view token = rest.substr(0, rest.find_first_of(separators));
    rest.remove_prefix(token.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
    return token;
}

/// Goes back to the last "*" only, so the work is at most the product of the lengths.
bool wildcard_matches(std::string_view pattern, std::string_view text)
{
    constexpr std::size_t none = std::string_view::npos;
    std::size_t place = 0;
    std::size_t star = none;
    std::size_t after_star = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (place < pattern.size() && pattern[place] == '*') {
            star = ++place;
            after_star = i;
        } else if (place < pattern.size() && (pattern[place] == '?' || pattern[place] == text[i])) {
            ++place;
            ++i;
        } else if (star != none) {
            place = star;
            i = ++after_star;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', place) == none;
}

bool pattern_list_matches(std::string_view patterns, std::string_view text)
{
    bool covered = false;
    while (!patterns.empty()) {
        const std::string_view pattern = take_token(patterns, ",");
        if (!pattern.starts_with('!')) {
            covered = covered || (!pattern.empty() && wildcard_matches(pattern, text));
        } else if (wildcard_matches(pattern.substr(1), text)) {
            return false;
        }
    }
    return covered;
}

} // namespace qrftp

#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

namespace support {

/// The absolute `name` without the symbolic links on its way; `leads_to`, given a path, returns where the link
/// that stands there leads, if there is one. Links that lead to each other are given up.
std::string follow_links(std::string name, const auto& leads_to)
{
    constexpr int most_links = 1000;
    std::size_t end = 0;
    for (int followed = 0; end < name.size() && followed < most_links;) {
        end = std::min(name.find('/', end + 1), name.size());
        const std::filesystem::path link = name.substr(0, end);
        if (const auto target = leads_to(link.string())) {
            std::string led_to = (link.parent_path() / *target).lexically_normal().string();
            led_to.erase(led_to.find_last_not_of('/') + 1);
            name = led_to + name.substr(end);
            end = 0;
            ++followed;
        }
    }
    return name.empty() ? "/" : name;
}

} // namespace support

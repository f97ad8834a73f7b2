#include "operands.hpp"

#include <algorithm>
#include <iterator>

namespace qrftp::cli {

operands::operands(std::string_view shown) : repeated_(std::string_view::npos)
{
    std::size_t place = 0;
    while (!shown.empty()) {
        std::string_view name = shown.substr(0, shown.find(' '));
        shown.remove_prefix(std::min(name.size() + 1, shown.size()));
        if (name == "|" || name.starts_with('-')) {
            place = name == "|" ? 0 : place;
            continue;
        }
        const bool optional = name.starts_with('[');
        if (optional) {
            name.remove_prefix(1);
        }
        if (name.find("...") != std::string_view::npos) {
            repeated_ = place;
        }
        all_.resize(std::max(all_.size(), place + 1));
        all_[place].names.emplace_back(name.substr(0, name.find_first_of(".]")));
        all_[place].optional = optional;
        ++place;
    }
    repeated_ = std::min(repeated_, all_.size());
}

std::vector<std::string> operands::at(std::size_t place, std::size_t count) const
{
    if (place < repeated_) {
        return place < all_.size() ? all_[place].names : std::vector<std::string>();
    }
    const std::size_t behind = count - place; // words, with this one
    const std::size_t after = all_.size() - repeated_ - 1;
    if (behind > after) {
        return all_[repeated_].names;
    }
    const operand& own = all_[all_.size() - behind];
    std::vector<std::string> found = own.names;
    if (own.optional) {
        std::ranges::copy(all_[repeated_].names, std::back_inserter(found));
    }
    return found;
}

std::vector<std::string> operands::next(std::size_t place) const
{
    if (place < repeated_) {
        return at(place, 0);
    }
    std::vector<std::string> found;
    for (std::size_t one = repeated_; one < all_.size() && one <= place; ++one) {
        std::ranges::copy(all_[one].names, std::back_inserter(found));
    }
    return found;
}

bool may_be_remote(std::string_view operand)
{
    return operand.find("URL") != std::string_view::npos || operand == "SOURCE" || operand == "DEST";
}

bool may_be_local(std::string_view operand)
{
    return operand == "LOCAL" || operand == "SOURCE" || operand == "DEST";
}

} // namespace qrftp::cli
